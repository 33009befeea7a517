#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"

#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

QJsonObject described(const CatalogueFile &catalogue, const Catalogue::Product &product,
                      const Catalogue::Release &release)
{
    QJsonObject result = catalogue.record(product.id, release.version);
    result.insert(u"product"_s, product.id);
    result.insert(u"size"_s, QFileInfo(release.installerPath).size());
    result.insert(u"newest"_s, release.version == product.releases.last().version);
    return result;
}

Outcome list(const Arguments &arguments, Console &console)
{
    const auto catalogue = CatalogueFile::read(*arguments.value(u"catalogue"_s));
    if (!catalogue)
        return Failure{catalogue.error()};
    QJsonArray releases;
    QJsonObject withdrawn;
    for (const auto &product : catalogue->products()) {
        for (const auto &release : product.releases)
            releases.append(described(*catalogue, product, release));
        const QStringList gone = catalogue->withdrawn(product.id);
        if (!gone.isEmpty())
            withdrawn.insert(product.id, QJsonArray::fromStringList(gone));
    }
    if (arguments.isSet(u"json"_s)) {
        console.print(jsonLine({{u"releases"_s, releases}, {u"withdrawn"_s, withdrawn}}));
        return Success;
    }
    const auto row = u"%1  %2  %3  %4"_s;
    console.say(
        row.arg(u"PRODUCT"_s, -16).arg(u"VERSION"_s, -10).arg(u"BYTES"_s, 13).arg(u"INSTALLER"_s));
    for (const auto &value : std::as_const(releases)) {
        const QJsonObject release = value.toObject();
        console.say(row.arg(release.value(u"product"_s).toString(), -16)
                        .arg(release.value(u"version"_s).toString() +
                                 (release.value(u"newest"_s).toBool() ? u" *"_s : QString()),
                             -10)
                        .arg(release.value(u"size"_s).toInteger(), 13)
                        .arg(release.value(u"installer"_s).toString()));
    }
    for (auto gone = withdrawn.constBegin(); gone != withdrawn.constEnd(); ++gone)
        console.say(u"Withdrawn of %1: %2"_s.arg(gone.key(),
                                                 gone->toVariant().toStringList().join(u", "_s)));
    return Success;
}

Outcome show(const Arguments &arguments, Console &console)
{
    const auto catalogue = CatalogueFile::read(*arguments.value(u"catalogue"_s));
    if (!catalogue)
        return Failure{catalogue.error()};
    const QString id = *arguments.value(u"product-id"_s);
    const auto *product = catalogue->product(id);
    const Catalogue::Release *shown = nullptr;
    const auto version = arguments.value(u"version"_s);
    if (product) {
        for (const auto &release : product->releases) {
            if (!version || release.version == *version)
                shown = &release; // Without a version the last, which is the newest.
        }
    }
    if (!shown)
        return Failure{u"there is no version %1of \"%2\"; see \"zvupdate-publish list\""_s.arg(
            version ? *version + u' ' : QString(), id)};
    const QJsonObject release = described(*catalogue, *product, *shown);
    const QStringList outdated = catalogue->outdated(*product);
    if (arguments.isSet(u"json"_s)) {
        console.print(jsonLine(
            {{u"release"_s, release}, {u"outdated"_s, QJsonArray::fromStringList(outdated)}}));
        return Success;
    }
    console.say(u"%1 %2%3"_s.arg(
        id, shown->version, release.value(u"newest"_s).toBool() ? u", the newest"_s : QString()));
    console.say(u"Installer: %1, %2 bytes"_s.arg(shown->installerPath)
                    .arg(release.value(u"size"_s).toInteger()));
    console.say(u"Recorded MD5: %1"_s.arg(release.value(u"md5"_s).toString(u"none"_s)));
    console.say(u"Versions that are offered the newest: %1"_s.arg(
        outdated.isEmpty() ? u"none"_s : outdated.join(u", "_s)));
    for (const auto &note : shown->notes) {
        console.say(u"Notes, %1:"_s.arg(note.language));
        for (const QString &line : note.memo.split(u'\n'))
            console.say(u"    "_s + line);
    }
    return Success;
}

Outcome withdraw(const Arguments &arguments, Console &console)
{
    auto catalogue = CatalogueFile::open(arguments);
    if (!catalogue)
        return Failure{catalogue.error()};
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    const QString id = *arguments.value(u"product-id"_s);
    const QString version = *arguments.value(u"version"_s);
    QStringList left;
    if (const auto *product = catalogue->product(id)) {
        for (const auto &release : product->releases)
            left.append(release.version);
    }
    if (!left.removeOne(version))
        return Failure{
            u"there is no version %1 of \"%2\"; see \"zvupdate-publish list\""_s.arg(version, id)};
    catalogue->withdraw(id, version);
    const auto saved = isDryRun ? Result<void>() : catalogue->save();
    if (!saved)
        return Failure{saved.error()};

    const QString newest = left.isEmpty() ? QString() : left.last();
    if (arguments.isSet(u"json"_s)) {
        console.print(jsonLine({{u"product"_s, id},
                                {u"withdrawn"_s, version},
                                {u"newest"_s, newest},
                                {u"dryRun"_s, isDryRun}}));
        return Success;
    }
    console.say((isDryRun ? u"Would withdraw %1 %2; %3"_s : u"Withdrew %1 %2; %3"_s)
                    .arg(id, version,
                         newest.isEmpty() ? u"nothing is left to offer"_s
                                          : u"%1 is the newest now"_s.arg(newest)));
    console.say(u"A static site offers it until it is made anew and the server has read that."_s);
    console.say(u"Who has it installed keeps it until a higher version is published."_s);
    return Success;
}

} // namespace

Command listCommand()
{
    return {
        .name = u"list"_s,
        .summary = u"Lists the releases of the catalogue"_s,
        .details = {u"A star marks the newest release of each product, which is what clients are "
                    "offered."_s},
        .options = {CatalogueOption::catalogue(), CatalogueOption::json()},
        .exitStatuses = {u"0 done, 1 the catalogue is not right, 2 wrong arguments."_s},
        .examples = {u"list --catalogue releases"_s},
        .run = list,
    };
}

Command showCommand()
{
    return {
        .name = u"show"_s,
        .summary = u"Shows a release with its notes"_s,
        .options = {CatalogueOption::catalogue(),
                    CatalogueOption::productId(),
                    {.name = u"version"_s,
                     .valueName = u"VERSION"_s,
                     .help = u"The release; the newest when left out."_s},
                    CatalogueOption::json()},
        .exitStatuses = {u"0 done, 1 there is no such release, 2 wrong arguments."_s},
        .examples = {u"show --catalogue releases --product-id P1"_s},
        .run = show,
    };
}

Command withdrawCommand()
{
    return {
        .name = u"withdraw"_s,
        .summary = u"Takes a release out of the catalogue"_s,
        .details =
            {u"Its installer stays in the folder. The version is remembered, so that clients "
             "that have it are offered the next one, and it is not used again by mistake."_s,
             u"zvupdate-service stops offering it at once, a static site when it is made anew."_s},
        .options = {CatalogueOption::catalogue(),
                    CatalogueOption::productId(),
                    {.name = u"version"_s,
                     .valueName = u"VERSION"_s,
                     .help = u"The release."_s,
                     .isRequired = true},
                    CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses = {u"0 withdrawn, 1 refused, 2 wrong arguments."_s},
        .examples = {u"withdraw --catalogue releases --product-id P1 --version 2103"_s},
        .run = withdraw,
    };
}
