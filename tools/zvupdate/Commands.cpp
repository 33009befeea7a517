#include "Commands.h"

std::vector<Command> allCommands()
{
    return {checkCommand(),  doctorCommand(), preferencesCommand(), sealCommand(),
            unsealCommand(), digestCommand(), languageCommand()};
}
