#include "CatalogueFile.h"
#include "CatalogueHistory.h"
#include "CatalogueOption.h"
#include "Commands.h"

#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"

#include <QJsonArray>
#include <QMap>

#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

using Release = std::pair<QString, QString>; // A product's identifier, and a version.

QMap<Release, QJsonObject> recordsOf(const CatalogueFile &catalogue)
{
    QMap<Release, QJsonObject> records;
    for (const auto &product : catalogue.products()) {
        for (const auto &release : product.releases)
            records.insert({product.id, release.version},
                           catalogue.record(product.id, release.version));
    }
    return records;
}

// What going back from the one to the other does, a sentence's part for each release.
QStringList differences(const CatalogueFile &now, const CatalogueFile &before)
{
    const auto released = recordsOf(now);
    const auto releasedBefore = recordsOf(before);
    QStringList result;
    const auto tell = [&result](const Release &release, const QString &what) {
        result.append(u"%1 %2 %3"_s.arg(release.first, release.second, what));
    };
    for (auto each = released.begin(); each != released.end(); ++each) {
        if (!releasedBefore.contains(each.key()))
            tell(each.key(), u"is no release any more"_s);
        else if (releasedBefore.value(each.key()) != each.value())
            tell(each.key(), u"is as it was"_s);
    }
    for (auto each = releasedBefore.begin(); each != releasedBefore.end(); ++each) {
        if (!released.contains(each.key()))
            tell(each.key(), u"is a release again"_s);
    }
    if (result.isEmpty())
        result.append(u"no release is another"_s);
    return result;
}

// Builds that may have been published, and for which nothing needs to be signed any more.
QStringList forgotten(const CatalogueFile &now, const CatalogueFile &before)
{
    QStringList result;
    for (const auto &product : now.products()) {
        for (const auto &build : product.builds) {
            const auto keysIn = [&](const CatalogueFile &catalogue) {
                return catalogue.record(product.id, build.version).value(u"releaseKeys"_s);
            };
            if (keysIn(now) != keysIn(before))
                result.append(
                    u"the keys of %1 %2 are forgotten, so that newer releases go without a "
                    "signature that it takes; if users have it, add it again with its keys and use "
                    "\"withdraw\""_s.arg(product.id, build.version));
        }
    }
    return result;
}

Outcome undo(const Arguments &arguments, Console &console)
{
    const auto catalogue = CatalogueFile::open(arguments);
    if (!catalogue)
        return Failure{catalogue.error()};
    CatalogueHistory history(catalogue->directory());
    const auto number = history.before(catalogue->json());
    if (!number)
        return Failure{u"there is no change to take back"_s};
    const auto before = CatalogueFile::parse(catalogue->directory(), history.state(*number));
    if (!before)
        return Failure{
            u"the last change cannot be taken back, since clients could not be served: "_s +
            before.error()};
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    const qsizetype left = history.countBefore(*number);
    if (const auto done = isDryRun ? Result<void>() : history.goBackTo(*number); !done)
        return Failure{done.error()};

    const QStringList changes = differences(*catalogue, *before);
    const QStringList warnings = forgotten(*catalogue, *before) +
                                 Signing::newlyRefused(catalogue->products(), before->products());
    for (const QString &warning : warnings)
        console.complain(arguments.command() + u": warning: "_s + warning);
    if (arguments.isSet(u"json"_s)) {
        console.print(jsonLine({{u"changes"_s, QJsonArray::fromStringList(changes)},
                                {u"warnings"_s, QJsonArray::fromStringList(warnings)},
                                {u"left"_s, left},
                                {u"dryRun"_s, isDryRun}}));
        return Success;
    }
    console.say(
        (isDryRun ? u"Would take back the last change: %1"_s : u"Took back the last change: %1"_s)
            .arg(changes.join(u"; "_s)));
    console.say(u"Changes before it that can be taken back: %1"_s.arg(left));
    console.say(u"A static site is as before until it is made anew."_s);
    return Success;
}

} // namespace

Command undoCommand()
{
    return {
        .name = u"undo"_s,
        .summary = u"Takes back the last change of the catalogue"_s,
        .details =
            {u"Whether that was add, edit, sign, attach, withdraw or an editor: releases.json is "
             "again what it was before. The last %1 states are kept, so that several changes can "
             "be taken back one after another; what is taken back is forgotten."_s.arg(
                 CatalogueHistory::longest),
             u"A build with keys whose addition is taken back is forgotten, and its users may be "
             "left with releases that it refuses: \"withdraw\" what was published."_s,
             u"Installers stay in the folder. To take back what a web server serves, see "
             "\"rollback\"."_s},
        .options = {CatalogueOption::catalogue(), CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses = {u"0 taken back, 1 refused, 2 wrong arguments."_s},
        .examples = {u"undo --catalogue releases"_s},
        .run = undo,
    };
}
