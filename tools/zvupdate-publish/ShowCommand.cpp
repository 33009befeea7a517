#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"

#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"

#include <QJsonArray>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

Outcome show(const Arguments &arguments, Console &console)
{
    const auto catalogue = CatalogueFile::read(*arguments.value(u"catalogue"_s));
    if (!catalogue)
        return Failure{catalogue.error()};
    const QString id = *arguments.value(u"product-id"_s);
    const auto *product = catalogue->product(id);
    const auto version = arguments.value(u"version"_s);
    const auto shown = version || !product || product->releases.isEmpty()
                           ? catalogue->release(id, version.value_or(QString()))
                           : &product->releases.last();
    if (!shown)
        return Failure{shown.error()};
    const QJsonObject release = catalogue->described(*product, **shown);
    const QStringList outdated =
        catalogue->outdated(Signing::offers({*product}, false).products.first());
    if (arguments.isSet(u"json"_s)) {
        console.print(jsonLine(
            {{u"release"_s, release}, {u"outdated"_s, QJsonArray::fromStringList(outdated)}}));
        return Success;
    }
    console.say(
        u"%1 %2%3"_s.arg(id, (*shown)->version,
                         release.value(u"newest"_s).toBool() ? u", the newest"_s : QString()));
    console.say(u"Installer: %1, %2 bytes"_s.arg((*shown)->installerPath)
                    .arg(release.value(u"size"_s).toInteger()));
    console.say(u"Recorded MD5: %1"_s.arg(release.value(u"md5"_s).toString(u"none"_s)));
    if (release.contains(u"statement"_s))
        console.say(u"To be signed: %1/%2"_s.arg(catalogue->directory(),
                                                 release.value(u"statement"_s).toString()));
    if (const QStringList signers = release.value(u"signedBy"_s).toVariant().toStringList();
        !signers.isEmpty())
        console.say(u"Signed under: %1"_s.arg(signers.join(u", "_s)));
    if (release.contains(u"refused"_s))
        console.say(u"Not offered: %1"_s.arg(release.value(u"refused"_s).toString()));
    console.say(u"Versions that are offered the newest: %1"_s.arg(
        outdated.isEmpty() ? u"none"_s : outdated.join(u", "_s)));
    for (const auto &note : (*shown)->notes) {
        console.say(u"Notes, %1:"_s.arg(note.language));
        for (const QString &line : note.memo.split(u'\n'))
            console.say(u"    "_s + line);
    }
    return Success;
}

} // namespace

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
