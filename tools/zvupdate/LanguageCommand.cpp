#include "../commands/Console.h"
#include "Commands.h"

#include <ZVUpdate/ZVUpdate.h>

using namespace Qt::StringLiterals;

namespace {

int language(const Arguments & /*arguments*/, Console &console)
{
    console.print(std::make_shared<ZVUpdateProc>()->getDefaultLangID());
    return Success;
}

} // namespace

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
