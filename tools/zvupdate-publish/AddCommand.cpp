#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"
#include "FilePlacing.h"

#include "../catalogue/RegularFile.h"
#include "../catalogue/Replies.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"
#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/platform/settings/VersionOrder.h>

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QStringDecoder>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

/// The release that is to be, step by step.
struct Addition
{
    QString productId;
    QString version;
    QString installer;
    QJsonObject notes;
    QStringList supersedes;
    QStringList warnings;
};

bool isBareDigits(const QString &version)
{
    return std::all_of(version.begin(), version.end(),
                       [](QChar c) { return c >= u'0' && c <= u'9'; });
}

QStringList languages()
{
    return {QString::fromUtf8(kZVLanguageCode_EN), QString::fromUtf8(kZVLanguageCode_zh_TW),
            QString::fromUtf8(kZVLanguageCode_zh_CN)};
}

QString tooLong()
{
    return u"--notes: with these notes clients would refuse the reply, which may have %1 bytes; "
           "shorten them"_s.arg(Replies::longest);
}

// Each client gets the notes in all languages.
Result<void> checkNotes(const Addition &addition)
{
    Catalogue::Release release{addition.version, {}, {}, {}};
    for (auto note = addition.notes.begin(); note != addition.notes.end(); ++note)
        release.notes.append({note.key(), note->toString()});
    const QString digest(32, u'0'); // As long as every MD5.
    if (Replies::newRelease(release, digest).size() > Replies::longest)
        return Failure{tooLong()};
    return {};
}

Result<void> readNotes(const QStringList &values, Addition *addition)
{
    for (const QString &value : values) {
        const QString language = value.section(u'=', 0, 0);
        const QString path = value.section(u'=', 1);
        if (QFileInfo(path).size() > Replies::longest)
            return Failure{tooLong()};
        const auto bytes = RegularFile::read(path);
        if (!bytes)
            return Failure{u"--notes: %1 cannot be read; give a file"_s.arg(path)};
        QStringDecoder decoder(QStringDecoder::Utf8);
        const QString text = QString(decoder(*bytes)).trimmed();
        if (decoder.hasError())
            return Failure{u"--notes: %1 is not UTF-8; convert it"_s.arg(path)};
        if (text.isEmpty())
            return Failure{
                u"--notes: %1 is empty; write something into it, or leave it out"_s.arg(path)};
        if (addition->notes.contains(language))
            return Failure{u"--notes: %1 is given twice; give one file for it"_s.arg(language)};
        addition->notes.insert(language, text);
        if (text.startsWith(u'"') && text.endsWith(u'"'))
            addition->warnings.append(
                u"clients take off the quotes around the notes in \"%1\""_s.arg(language));
        if (!languages().contains(language))
            addition->warnings.append(u"no client asks for notes in \"%1\"; they ask for %2"_s.arg(
                language, languages().join(u", "_s)));
    }
    for (const QString &language : languages()) {
        if (!addition->notes.contains(language))
            addition->warnings.append(
                u"there are no notes in \"%1\", and nothing stands in for them"_s.arg(language));
    }
    return checkNotes(*addition);
}

Result<void> checkVersion(const CatalogueFile &catalogue, const Addition &addition, bool isForced)
{
    const QString &version = addition.version;
    if (!hasNumber(version))
        return Failure{
            u"version \"%1\" has no number to order it by; give one, such as 2103"_s.arg(version)};
    if (!UpdateFiles::named(catalogue.directory(), addition.productId, version))
        return Failure{
            u"clients would refuse version \"%1\" of \"%2\", as \"%2_%1.exe\" is not "
            "one plain file name; choose another version"_s.arg(version, addition.productId)};
    for (const QString &old : addition.supersedes) {
        if (!hasNumber(old) || compareVersions(old, version) >= 0)
            return Failure{
                u"--supersedes: \"%1\" is not older than %2; leave it out"_s.arg(old, version)};
    }
    if (!isForced && catalogue.withdrawn(addition.productId).contains(version))
        return Failure{
            u"version %1 was withdrawn, and caches or clients may still have it; choose a higher "
            "version, or give --force"_s.arg(version)};
    const auto *product = catalogue.product(addition.productId);
    if (!product)
        return {};
    for (const auto &release : product->releases) {
        if (compareVersions(release.version, version) == 0)
            return Failure{u"version %1 exists, as \"%2\"; choose a higher version"_s.arg(
                version, release.version)};
    }
    if (!isForced && !product->releases.isEmpty() &&
        compareVersions(version, product->releases.last().version) < 0)
        return Failure{u"version %1 is older than %2, the newest; choose a higher version, or give "
                       "--force"_s.arg(version, product->releases.last().version)};
    return {};
}

Result<void> checkInstaller(Addition *addition)
{
    const QFileInfo file(addition->installer);
    if (!file.isFile() || !file.isReadable())
        return Failure{u"--installer: %1 cannot be read; give a file"_s.arg(addition->installer)};
    if (file.size() == 0)
        return Failure{u"--installer: %1 is empty; give the installer"_s.arg(addition->installer)};
    // Clients count a file's bytes in 32 bits.
    if (const quint64 rest = static_cast<quint64>(file.size()) >> 32; rest != 0)
        addition->warnings.append(
            u"clients verify only the first %1 bytes of so large an installer"_s.arg(
                static_cast<quint32>(file.size())));
    return {};
}

/// Where the installer stands in the catalogue's folder, and whether it was put there just now.
struct Place
{
    QString relativePath;
    bool isNew = false;
};

Place placeFor(const CatalogueFile &catalogue, const Addition &addition)
{
    const QString path = QFileInfo(addition.installer).canonicalFilePath();
    if (path.startsWith(catalogue.directory() + u'/'))
        return {QDir(catalogue.directory()).relativeFilePath(path)};
    const QString suffix = QFileInfo(path).suffix();
    return {u"installers/%1_%2"_s.arg(addition.productId, addition.version) +
                (suffix.isEmpty() ? QString() : u'.' + suffix),
            true};
}

// Whose installer lies at that path, if anybody's: two products' identifiers and versions may run
// together to one name.
std::optional<QString> ownerOf(const CatalogueFile &catalogue, const QString &path)
{
    for (const auto &product : catalogue.products()) {
        for (const auto &release : product.releases) {
            if (release.installerPath == path)
                return u"version %1 of \"%2\""_s.arg(release.version, product.id);
        }
    }
    return std::nullopt;
}

// Enters the release into the catalogue, which then has the record that is returned.
Result<QJsonObject> enter(CatalogueFile *catalogue, const Addition &addition, bool isDryRun)
{
    const Place place = placeFor(*catalogue, addition);
    const QString target = QDir(catalogue->directory()).filePath(place.relativePath);
    const auto owner = place.isNew ? ownerOf(*catalogue, target) : std::nullopt;
    if (owner)
        return Failure{u"%1: is the installer of %2; choose another version"_s.arg(target, *owner)};
    const QString path = isDryRun ? addition.installer : target;
    if (place.isNew && !isDryRun) {
        QDir(catalogue->directory()).mkpath(u"installers"_s);
        // A copy of its own: what becomes of the original is its maker's business.
        const auto placed =
            FilePlacing::place(addition.installer, path, FilePlacing::Sharing::None);
        if (!placed)
            return Failure{placed.error()};
    }
    QJsonObject record{{u"version"_s, addition.version},
                       {u"installer"_s, place.relativePath},
                       {u"size"_s, QFileInfo(path).size()},
                       {u"md5"_s, ZVMisc::getFileMD5(path)},
                       {u"notes"_s, addition.notes}};
    if (!addition.supersedes.isEmpty())
        record.insert(u"supersedes"_s, QJsonArray::fromStringList(addition.supersedes));
    if (isDryRun)
        return record;
    catalogue->add(addition.productId, record);
    if (const auto saved = catalogue->save(); !saved) {
        if (place.isNew)
            QFile::remove(path);
        return Failure{saved.error()};
    }
    return record;
}

void report(const Addition &addition, const QJsonObject &record, const Arguments &arguments,
            Console &console)
{
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    for (const QString &warning : addition.warnings)
        console.complain(u"zvupdate-publish add: warning: "_s + warning);
    if (arguments.isSet(u"json"_s))
        return console.print(
            jsonLine({{u"product"_s, addition.productId},
                      {u"release"_s, record},
                      {u"warnings"_s, QJsonArray::fromStringList(addition.warnings)},
                      {u"dryRun"_s, isDryRun}}));
    const qint64 size = record.value(u"size"_s).toInteger();
    console.say((isDryRun ? u"Would add %1 %2: %3, %4 bytes, MD5 %5"_s
                          : u"Added %1 %2: %3, %4 bytes, MD5 %5"_s)
                    .arg(addition.productId, addition.version,
                         record.value(u"installer"_s).toString(), QString::number(size),
                         record.value(u"md5"_s).toString()));
}

Outcome add(const Arguments &arguments, Console &console)
{
    Addition addition{*arguments.value(u"product-id"_s), *arguments.value(u"version"_s),
                      *arguments.value(u"installer"_s),  {},
                      arguments.values(u"supersedes"_s), {}};
    for (const QString &value : arguments.values(u"notes"_s)) {
        if (value.indexOf(u'=') < 1)
            return wrongArguments(
                u"--notes: \"%1\" is not LANGUAGE=FILE; give, say, en=notes.txt"_s.arg(value));
    }
    if (!isBareDigits(addition.version))
        addition.warnings.append(
            u"the prompt shows a dot after each character but the last: version \"%1\" as \"v%2\""_s
                .arg(addition.version,
                     addition.version.split(QString(), Qt::SkipEmptyParts).join(u'.')));
    auto checked = readNotes(arguments.values(u"notes"_s), &addition);
    if (checked)
        checked = checkInstaller(&addition);
    if (!checked)
        return Failure{checked.error()};

    auto catalogue = CatalogueFile::open(arguments, CatalogueFile::IfMissing::Empty);
    if (!catalogue)
        return Failure{catalogue.error()};
    checked = checkVersion(*catalogue, addition, arguments.isSet(u"force"_s));
    if (!checked)
        return Failure{checked.error()};
    const auto record = enter(&*catalogue, addition, arguments.isSet(u"dry-run"_s));
    if (!record)
        return Failure{record.error()};
    report(addition, *record, arguments, console);
    return Success;
}

} // namespace

Command addCommand()
{
    return {
        .name = u"add"_s,
        .summary = u"Adds a release to the catalogue"_s,
        .details = {u"Size and digest are computed from the installer. One that lies outside the "
                    "catalogue's folder is copied into it, and what becomes of the original "
                    "later is not published: sign an installer before it is added. One that lies "
                    "in the folder is never to be written into, only replaced as a whole."_s,
                    u"zvupdate-service sees the release at once, a static site when it is made "
                    "anew."_s},
        .options = {CatalogueOption::catalogue(),
                    CatalogueOption::productId(),
                    {.name = u"version"_s,
                     .valueName = u"VERSION"_s,
                     .help = u"The new version; bare digits, such as 2103, which the prompt shows "
                             "as v2.1.0.3."_s,
                     .isRequired = true},
                    {.name = u"installer"_s,
                     .valueName = u"FILE"_s,
                     .help = u"The installer."_s,
                     .isRequired = true},
                    {.name = u"notes"_s,
                     .valueName = u"LANGUAGE=FILE"_s,
                     .help = u"Release notes, a file in UTF-8 for each language: en, zh-TW and "
                             "zh-CN."_s},
                    {.name = u"supersedes"_s,
                     .valueName = u"VERSION"_s,
                     .help = u"An older version that users have and that is not in the catalogue. "
                             "A static site answers only versions that it knows. May be given "
                             "several times."_s},
                    {.name = u"force"_s,
                     .help = u"Also adds a version that is older than the newest, or that was "
                             "withdrawn."_s},
                    CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses =
            {u"0 added, 1 refused, 2 wrong arguments. Warnings change nothing in it."_s},
        .examples = {u"add --catalogue releases --product-id P1 --version 2103 --installer "
                     "P1-setup.run --notes en=notes.txt"_s},
        .run = add,
    };
}
