#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"

#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"

using namespace Qt::StringLiterals;

namespace {

int withdraw(const Arguments &arguments, Console &console)
{
    const auto refuse = [&console](const QString &reason) {
        console.complain(u"zvupdate-publish withdraw: "_s + reason);
        return Failure;
    };
    QString error;
    const QString directory = *arguments.value(u"catalogue"_s);
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    const auto lock = isDryRun ? nullptr : CatalogueOption::lock(directory, &error);
    if (!isDryRun && !lock)
        return refuse(error);
    auto catalogue = CatalogueFile::read(directory, false, &error);
    if (!catalogue)
        return refuse(error);
    if (!isDryRun)
        catalogue->removeUnfinished();

    const QString id = *arguments.value(u"product-id"_s);
    const QString version = *arguments.value(u"version"_s);
    QStringList left;
    if (const auto *product = catalogue->product(id)) {
        for (const auto &release : product->releases)
            left.append(release.version);
    }
    if (!left.removeOne(version))
        return refuse(
            u"there is no version %1 of \"%2\"; see \"zvupdate-publish list\""_s.arg(version, id));
    catalogue->withdraw(id, version);
    const auto failure = isDryRun ? std::nullopt : catalogue->save();
    if (failure)
        return refuse(*failure);

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
