#include "Commands.h"

std::vector<Command> allCommands()
{
    return {checkCommand(),  preferencesCommand(), sealCommand(),
            unsealCommand(), digestCommand(),      languageCommand()};
}
