#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"

#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"

#include <QJsonArray>
#include <QJsonObject>

#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

Outcome list(const Arguments &arguments, Console &console)
{
    const auto catalogue = CatalogueFile::read(*arguments.value(u"catalogue"_s));
    if (!catalogue)
        return Failure{catalogue.error()};
    QJsonArray releases;
    QJsonObject withdrawn;
    for (const auto &product : catalogue->products()) {
        for (const auto &release : product.releases)
            releases.append(catalogue->described(product, release));
        const QStringList gone = catalogue->withdrawn(product.id);
        if (!gone.isEmpty())
            withdrawn.insert(product.id, QJsonArray::fromStringList(gone));
    }
    if (arguments.isSet(u"json"_s)) {
        console.print(jsonLine({{u"releases"_s, releases}, {u"withdrawn"_s, withdrawn}}));
        return Success;
    }
    const auto row = u"%1  %2  %3  %4  %5"_s;
    console.say(row.arg(u"PRODUCT"_s, -16)
                    .arg(u"VERSION"_s, -10)
                    .arg(u"BYTES"_s, 13)
                    .arg(u"SIGNED UNDER"_s, -16)
                    .arg(u"INSTALLER"_s));
    for (const auto &value : std::as_const(releases)) {
        const QJsonObject release = value.toObject();
        const QStringList signers = release.value(u"signedBy"_s).toVariant().toStringList();
        const QString notSigned = release.contains(u"refused"_s) ? u"not offered"_s : u"-"_s;
        console.say(row.arg(release.value(u"product"_s).toString(), -16)
                        .arg(release.value(u"version"_s).toString() +
                                 (release.value(u"newest"_s).toBool() ? u" *"_s : QString()),
                             -10)
                        .arg(release.value(u"size"_s).toInteger(), 13)
                        .arg(release.contains(u"refused"_s) || signers.isEmpty()
                                 ? notSigned
                                 : signers.join(u", "_s),
                             -16)
                        .arg(release.value(u"installer"_s).toString()));
    }
    for (auto gone = withdrawn.constBegin(); gone != withdrawn.constEnd(); ++gone)
        console.say(u"Withdrawn of %1: %2"_s.arg(gone.key(),
                                                 gone->toVariant().toStringList().join(u", "_s)));
    return Success;
}

} // namespace

Command listCommand()
{
    return {
        .name = u"list"_s,
        .summary = u"Lists the releases of the catalogue"_s,
        .details = {u"A star marks the newest release of each product, which is what clients are "
                    "offered. Under which of their keys it is signed is said by the names that "
                    "minisign gives them, and of a key without a number by its first 16 digits."_s},
        .options = {CatalogueOption::catalogue(), CatalogueOption::json()},
        .exitStatuses = {u"0 done, 1 the catalogue is not right, 2 wrong arguments."_s},
        .examples = {u"list --catalogue releases"_s},
        .run = list,
    };
}
