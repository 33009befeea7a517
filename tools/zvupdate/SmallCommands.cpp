#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "Commands.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

Outcome seal(const Arguments &arguments, Console &console)
{
    console.print(HttpFunctionURLEncode::encode(arguments.operand()));
    return Success;
}

Outcome unseal(const Arguments &arguments, Console &console)
{
    const auto text = HttpFunctionURLEncode::decode(arguments.operand());
    if (!text)
        return Failure{u"HEX is not a sealed text; give the hexadecimal digits that \"zvupdate "
                       "seal\" or a service made, whole and unaltered"_s};
    console.print(*text);
    return Success;
}

// The library answers the digest of nothing for a file that it cannot read, which is right for
// comparing and wrong for showing.
Outcome digest(const Arguments &arguments, Console &console)
{
    const QString &path = arguments.operand();
    const QFileInfo info(path);
    QFile file(path);
    if (!info.exists())
        return Failure{u"%1: there is no such file; check the path"_s.arg(path)};
    if (!info.isFile())
        return Failure{u"%1: it is not a regular file; give one"_s.arg(path)};
    if (!file.open(QIODevice::ReadOnly))
        return Failure{u"%1: %2; make the file readable"_s.arg(path, file.errorString())};
    console.print(ZVMisc::getFileMD5(path));
    return Success;
}

Outcome language(const Arguments & /*arguments*/, Console &console)
{
    console.print(std::make_shared<ZVUpdateProc>()->getDefaultLangID());
    return Success;
}

} // namespace

Command sealCommand()
{
    return {
        .name = u"seal"_s,
        .summary = u"Seals a text as it is exchanged with the update service"_s,
        .details = {u"Prints the sealed text as hexadecimal digits. A command for the service is "
                    "sealed and appended to the service's base URL. Before a text that begins "
                    "with a dash, write \"--\"."_s},
        .operandName = u"TEXT"_s,
        .exitStatuses = {u"0 done, 2 wrong arguments."_s},
        .examples = {u"seal cmd=gettoken"_s, u"seal 'cmd=checkupd&id=P1&ver=2100'"_s},
        .run = seal,
    };
}

Command unsealCommand()
{
    return {
        .name = u"unseal"_s,
        .summary = u"Unseals a text exchanged with the update service"_s,
        .details = {u"Prints the plain text of what \"zvupdate seal\" or a service has sealed."_s},
        .operandName = u"HEX"_s,
        .exitStatuses = {u"0 done, 1 HEX is not a sealed text, 2 wrong arguments."_s},
        .examples = {u"unseal 7D4470DA8E2DCE6836729BBA61EC3DBB"_s},
        .run = unseal,
    };
}

Command digestCommand()
{
    return {
        .name = u"digest"_s,
        .summary = u"Prints a file's MD5 digest as an update service announces it"_s,
        .details = {u"Of a file of 4 GiB or more, only the first (size modulo 4 GiB) bytes count, "
                    "here as in the check of an installer."_s},
        .operandName = u"FILE"_s,
        .exitStatuses = {u"0 done, 1 the file cannot be read, 2 wrong arguments."_s},
        .examples = {u"digest P1_2103.exe"_s},
        .run = digest,
    };
}

Command languageCommand()
{
    return {
        .name = u"language"_s,
        .summary = u"Prints the code of the release notes' language for the current locale"_s,
        .details = {u"The region of the locale decides: Taiwan and China have codes of their own, "
                    "everybody else gets English."_s},
        .exitStatuses = {u"0 done, 2 wrong arguments."_s},
        .examples = {u"language"_s},
        .run = language,
    };
}
