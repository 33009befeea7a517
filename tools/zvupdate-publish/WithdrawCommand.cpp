#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"

#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"

#include <QFile>

#include <optional>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

// What a withdrawn release's installer may be removed by: its path.
Result<QString> removable(const CatalogueFile &catalogue, const QString &id, const QString &version)
{
    const auto path = catalogue.installer(id, version);
    if (!path)
        return Failure{u"--remove-installer: the catalogue knows of no installer of version %1 of "
                       "\"%2\" any more; if there is one, remove it by hand"_s.arg(version, id)};
    for (const auto &product : catalogue.products()) {
        for (const auto &release : product.releases) {
            const bool isItself = product.id == id && release.version == version;
            if (!isItself && release.installerPath == *path)
                return Failure{
                    u"--remove-installer: %1 is the installer of version %2 of \"%3\", "
                    "too; withdraw that first"_s.arg(*path, release.version, product.id)};
        }
    }
    return *path;
}

/// What is done, or would be with --dry-run.
struct Withdrawal
{
    QString productId;
    QString version;
    /// Whether it has been withdrawn before.
    bool isDone = false;
    /// Empty when nothing is left.
    QString newest = {};
    /// The installer that is removed.
    std::optional<QString> removed = {};
};

void report(const Withdrawal &withdrawal, const Arguments &arguments, Console &console)
{
    const auto &[id, version, isDone, newest, removed] = withdrawal;
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    if (arguments.isSet(u"json"_s))
        return console.print(jsonLine({{u"product"_s, id},
                                       {u"withdrawn"_s, version},
                                       {u"newest"_s, newest},
                                       {u"removed"_s, removed.value_or(QString())},
                                       {u"dryRun"_s, isDryRun}}));
    if (!isDone)
        console.say((isDryRun ? u"Would withdraw %1 %2; %3"_s : u"Withdrew %1 %2; %3"_s)
                        .arg(id, version,
                             newest.isEmpty() ? u"nothing is left to offer"_s
                                              : u"%1 is the newest now"_s.arg(newest)));
    if (removed)
        console.say((isDryRun ? u"Would remove %1"_s : u"Removed %1"_s).arg(*removed));
    console.say(u"A static site offers it until it is made anew and the server has read that."_s);
    console.say(u"Who has it installed keeps it until a higher version is published."_s);
}

Outcome withdraw(const Arguments &arguments, Console &console)
{
    auto catalogue = CatalogueFile::open(arguments);
    if (!catalogue)
        return Failure{catalogue.error()};
    Withdrawal withdrawal{*arguments.value(u"product-id"_s), *arguments.value(u"version"_s)};
    const auto &[id, version, isDone, newest, removed] = withdrawal;
    const bool isRemoval = arguments.isSet(u"remove-installer"_s);
    withdrawal.isDone = catalogue->withdrawn(id).contains(version);
    if (const auto release = catalogue->release(id, version); !release && !(isDone && isRemoval))
        return Failure{release.error()};
    if (isRemoval) {
        const auto path = removable(*catalogue, id, version);
        if (!path)
            return Failure{path.error()};
        withdrawal.removed = *path;
    }
    auto left = *catalogue->product(id);
    left.releases.removeIf(
        [&gone = withdrawal.version](const auto &each) { return each.version == gone; });
    if (const auto *release = Signing::newest(left))
        withdrawal.newest = release->version;
    if (!arguments.isSet(u"dry-run"_s)) {
        if (!isDone)
            catalogue->withdraw(id, version);
        if (const auto saved = isDone ? Result<void>() : catalogue->save(); !saved)
            return Failure{saved.error()};
        // Afterwards: no release is ever without its installer.
        if (removed && !QFile::remove(*removed))
            return Failure{u"%1: is withdrawn, but cannot be removed; make its folder writable and "
                           "try again"_s.arg(*removed)};
    }
    report(withdrawal, arguments, console);
    return Success;
}

} // namespace

Command withdrawCommand()
{
    return {
        .name = u"withdraw"_s,
        .summary = u"Takes a release out of the catalogue"_s,
        .details =
            {u"Its installer stays in the folder, unless it is to be removed. The version is "
             "remembered, so that clients that have it are offered the next one, and it is not "
             "used again by mistake."_s,
             u"zvupdate-service stops offering it at once, a static site when it is made anew."_s},
        .options = {CatalogueOption::catalogue(),
                    CatalogueOption::productId(),
                    CatalogueOption::version(),
                    {.name = u"remove-installer"_s,
                     .help = u"Removes the installer from the folder, also that of a release that "
                             "is withdrawn already. \"undo\" cannot bring it back."_s},
                    CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses = {u"0 withdrawn, 1 refused, 2 wrong arguments."_s},
        .examples = {u"withdraw --catalogue releases --product-id P1 --version 2103"_s},
        .run = withdraw,
    };
}
