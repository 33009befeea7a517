#include "CatalogueFile.h"
#include "CatalogueOption.h"
#include "Commands.h"
#include "SiteVerification.h"

#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {

using Finding = SiteVerification::Finding;

void printRow(const Finding &finding, Console &console)
{
    const auto row = u"%1  %2  %3  %4"_s.arg(finding.productId, -16)
                         .arg(finding.version, -10)
                         .arg(finding.exchange, -8);
    if (finding.differences.isEmpty())
        console.say(row.arg(u"ok"_s));
    for (const QString &difference : finding.differences)
        console.say(row.arg(u"WRONG: "_s + difference));
}

void printJson(const Finding &finding, Console &console)
{
    console.print(jsonLine({{u"product"_s, finding.productId},
                            {u"version"_s, finding.version},
                            {u"exchange"_s, finding.exchange},
                            {u"differences"_s, QJsonArray::fromStringList(finding.differences)}}));
}

int verify(const Arguments &arguments, Console &console)
{
    const auto refuse = [&console](const QString &reason) {
        console.complain(u"zvupdate-publish verify: "_s + reason);
        return Failure;
    };
    QString error;
    const auto catalogue = CatalogueFile::read(*arguments.value(u"catalogue"_s), false, &error);
    if (!catalogue)
        return refuse(error);
    int looked = 0;
    int wrong = 0;
    const auto failure =
        SiteVerification(arguments.operand(), *catalogue).run([&](const Finding &finding) {
            ++looked;
            wrong += finding.differences.isEmpty() ? 0 : 1;
            arguments.isSet(u"json"_s) ? printJson(finding, console) : printRow(finding, console);
        });
    if (failure)
        return refuse(*failure);
    if (arguments.isSet(u"json"_s))
        console.print(jsonLine({{u"looked"_s, looked}, {u"wrong"_s, wrong}}));
    else
        console.say(u"%1 looked at, %2 wrong"_s.arg(looked).arg(wrong));
    return wrong == 0 ? Success : Failure;
}

} // namespace

Command verifyCommand()
{
    return {
        .name = u"verify"_s,
        .summary = u"Plays clients of all versions, and checks what they are given"_s,
        .details = {u"A client of every version in the catalogue asks the service at BASE-URL, as "
                    "well as one that nobody has published; and every installer is asked for its "
                    "size, downloaded, resumed and compared with the catalogue's. What differs is "
                    "a stale cache, another file or digest, a HEAD without the length or a Range "
                    "that is ignored."_s},
        .operandName = u"BASE-URL"_s,
        .options = {CatalogueOption::catalogue(), CatalogueOption::json()},
        .exitStatuses = {u"0 all is as the catalogue says, 1 something is not, or nothing could be "
                         "looked at, 2 wrong arguments."_s},
        .examples = {u"verify --catalogue releases "
                     "'https://updates.example.com/Update/ZVDLCtl.dll?dt='"_s},
        .run = verify,
    };
}
