#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "Commands.h"

#include <ZVUpdate/ZVUpdate.h>

using namespace Qt::StringLiterals;

namespace {

int seal(const Arguments &arguments, Console &console)
{
    console.print(HttpFunctionURLEncode::encode(arguments.operand()));
    return Success;
}

int unseal(const Arguments &arguments, Console &console)
{
    const auto text = HttpFunctionURLEncode::decode(arguments.operand());
    if (!text) {
        console.complain(u"zvupdate unseal: HEX is not a sealed text; give the hexadecimal digits "
                         "that \"zvupdate seal\" or a service made, whole and unaltered"_s);
        return Failure;
    }
    console.print(*text);
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
