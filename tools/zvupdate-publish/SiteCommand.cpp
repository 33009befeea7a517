#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"
#include "NginxConfig.h"
#include "SiteContents.h"
#include "SiteFolder.h"

#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"
#include "../commands/WorkProgress.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>

#include <filesystem>
#include <system_error>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

// Nothing that means something to nginx.
bool isPlain(const QString &text)
{
    static const QRegularExpression plain(u"\\A[^\\s\"'\\\\;{}$]+\\z"_s);
    return plain.match(text).hasMatch();
}

Result<void> takeBaseUrl(const QString &url, NginxConfig *config)
{
    static const QRegularExpression form(u"\\Ahttps?://[^/?#]+(/[^?#]*)\\?([A-Za-z0-9_]+)=\\z"_s);
    const auto match = form.match(url);
    // nginx compares the path as it is without escapes and doubled slashes.
    if (!match.hasMatch() || !isPlain(url) || match.captured(1).contains(u'%') ||
        match.captured(1).contains(u"//"_s))
        return Failure{
            u"--base-url: \"%1\" is not possible; give http://HOST/PATH?KEY="_s.arg(url)};
    config->path = match.captured(1);
    config->queryKey = match.captured(2);
    return {};
}

Result<void> takeDownloadHost(const QString &url, const QString &baseUrl, NginxConfig *config)
{
    static const QRegularExpression form(u"\\Ahttps?://[^/?#]+(/[^?#]*)?\\z"_s);
    if (!form.match(url).hasMatch() || !isPlain(url))
        return Failure{u"--download-host: \"%1\" is not possible; give http://HOST or "
                       "http://HOST/FOLDER"_s.arg(url)};
    if (baseUrl.startsWith(u"https:"_s) && !url.startsWith(u"https:"_s))
        return Failure{
            u"--download-host: clients do not follow from https to http; give an https URL"_s};
    config->downloadHost = url;
    while (config->downloadHost.endsWith(u'/'))
        config->downloadHost.chop(1);
    return {};
}

Result<NginxConfig> configure(const Arguments &arguments, const QString &output)
{
    NginxConfig config;
    const auto baseUrl = arguments.value(u"base-url"_s);
    const auto host = arguments.value(u"download-host"_s);
    Result<void> taken;
    if (baseUrl)
        taken = takeBaseUrl(*baseUrl, &config);
    if (taken && host)
        taken = takeDownloadHost(*host, baseUrl.value_or(QString()), &config);
    if (!taken)
        return Failure{taken.error()};
    // Simplified without asking the disk, as the folder may not be there yet.
    config.root = arguments.value(u"root"_s).value_or(QDir::cleanPath(output));
    if (!config.root.startsWith(u'/'))
        return Failure{u"--root: \"%1\" is not possible; give a path from / on"_s.arg(config.root)};
    if (!isPlain(config.root))
        return Failure{u"\"%1\" cannot stand in nginx's configuration; use a path without spaces, "
                       "quotes and signs such as $"_s.arg(config.root)};
    return config;
}

bool isSameFolder(const QString &one, const QString &other)
{
    std::error_code error;
    return std::filesystem::equivalent(one.toStdString(), other.toStdString(), error);
}

void report(const SiteContents &site, const SiteFolder &folder, const NginxConfig &config,
            bool isChanged, qsizetype removed, const QStringList &refused,
            const Arguments &arguments, Console &console)
{
    const int generation = folder.currentGeneration();
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    if (arguments.isSet(u"json"_s))
        return console.print(jsonLine({{u"changed"_s, isChanged},
                                       {u"dryRun"_s, isDryRun},
                                       {u"generation"_s, generation},
                                       {u"replies"_s, site.replies.size()},
                                       {u"installers"_s, site.installerFiles.size()},
                                       {u"token"_s, site.token},
                                       {u"removed"_s, removed},
                                       {u"refused"_s, QJsonArray::fromStringList(refused)}}));
    const QString verb = !isChanged ? u"is unchanged"_s
                         : isDryRun ? u"would be made"_s
                                    : u"is made"_s;
    console.say(u"The site %1; commands answered: %2, installers: %3"_s.arg(verb)
                    .arg(site.replies.size() + site.downloads.size())
                    .arg(site.installerFiles.size()));
    if (!isChanged || isDryRun)
        return;
    console.say(
        u"This is generation %1; files removed with old ones: %2"_s.arg(generation).arg(removed));
    console.say(u"Now: nginx -t && nginx -s reload"_s);
    if (generation == 1)
        console.say(u"The first time, include %1/current/nginx.conf as is said at its head."_s.arg(
            config.root));
}

Outcome site(const Arguments &arguments, Console &console)
{
    const auto output = arguments.absolutePath(u"output"_s);
    if (!output)
        return wrongArguments(output.error());
    const auto keep = arguments.number(u"keep"_s, 3, 1, 1'000'000);
    if (!keep)
        return wrongArguments(keep.error());
    const auto config = configure(arguments, *output);
    if (!config)
        return wrongArguments(config.error());

    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    if (!isDryRun && !QDir().mkpath(*output))
        return Failure{u"%1: cannot be made; give --output a writable place"_s.arg(*output)};
    // Its lock cannot be taken twice.
    if (isSameFolder(*output, *arguments.value(u"catalogue"_s)))
        return wrongArguments(
            u"%1: is the catalogue's folder; give --output another"_s.arg(*output));
    const auto lock = isDryRun ? std::unique_ptr<QLockFile>() : CatalogueOption::lock(*output);
    if (!lock)
        return Failure{lock.error()};
    // Nobody exchanges an installer while it is digested and placed.
    const auto catalogue = CatalogueFile::open(arguments);
    if (!catalogue)
        return Failure{catalogue.error()};
    const auto offers =
        Signing::offers(catalogue->products(), arguments.isSet(u"allow-unsigned"_s));
    for (const QString &refused : offers.refused)
        console.complain(arguments.command() + u": warning: "_s + refused);
    SiteFolder folder(*output);
    const bool isForPeople = !arguments.isSet(u"json"_s);
    WorkProgress reading(console, u"Reading"_s, SiteContents::bytesToRead(offers.products),
                         isForPeople);
    const auto contents = SiteContents::of(*catalogue, offers.products, folder.records(),
                                           [&reading](qint64 bytes) { reading.advance(bytes); });
    if (!contents)
        return Failure{contents.error()};

    const bool isCurrent = folder.isCurrent(*contents, *config);
    qsizetype removed = 0;
    if (!isCurrent && !isDryRun) {
        WorkProgress placing(console, u"Placing"_s, 2 * folder.missingBytes(*contents),
                             isForPeople);
        const auto published = folder.publish(*contents, *config,
                                              [&placing](qint64 bytes) { placing.advance(bytes); });
        if (!published)
            return Failure{published.error()};
        removed = folder.removeOld(*keep);
    }
    report(*contents, folder, *config, !isCurrent, removed, offers.refused, arguments, console);
    return Success;
}

} // namespace

Command siteCommand()
{
    return {
        .name = u"site"_s,
        .summary = u"Makes a static site of the catalogue, for a web server"_s,
        .details = {u"The folder holds a file for every answer, and a configuration for nginx that "
                    "maps to it what clients ask; nothing of ZVUpdate runs there. A new site takes "
                    "the place of the old one by the rename of one link. The server then has to "
                    "read its configuration again, and serves the old site until it has."_s,
                    u"A static site knows only the versions in the catalogue and those that "
                    "\"add --supersedes\" has named. All others are told that theirs is "
                    "unknown."_s},
        .options = {CatalogueOption::catalogue(),
                    {.name = u"output"_s,
                     .valueName = u"DIR"_s,
                     .help = u"The folder of the site. On the file system of the catalogue, "
                             "installers take no room twice."_s,
                     .isRequired = true},
                    {.name = u"format"_s,
                     .valueName = u"FORMAT"_s,
                     .help = u"For which web server: nginx."_s,
                     .isRequired = true,
                     .choices = {u"nginx"_s}},
                    {.name = u"base-url"_s,
                     .valueName = u"URL"_s,
                     .help = u"The base URL that clients have, when its path and query are not "
                             "\"/Update/ZVDLCtl.dll?dt=\"."_s},
                    {.name = u"download-host"_s,
                     .valueName = u"URL"_s,
                     .help = u"Sends downloads by redirect to URL/installers/NAME: a content "
                             "network in front of this site, or a bucket with a copy of the "
                             "folder installers."_s},
                    {.name = u"root"_s,
                     .valueName = u"PATH"_s,
                     .help = u"Where the web server sees DIR, when that is elsewhere."_s},
                    {.name = u"keep"_s,
                     .valueName = u"N"_s,
                     .help = u"Removes what only sites older than the newest N need; 3 when left "
                             "out."_s},
                    CatalogueOption::allowUnsigned(),
                    CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses = {u"0 made, or unchanged, 1 refused, and the site before goes on, 2 wrong "
                         "arguments."_s},
        .examples = {u"site --catalogue releases --output /srv/updates --format nginx"_s},
        .run = site,
    };
}
