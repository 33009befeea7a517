#pragma once

#include "../commands/Command.h"

#include <vector>

/// All commands, in the order in which help lists them.
std::vector<Command> allCommands();

Command checkCommand();
Command doctorCommand();
Command preferencesCommand();
Command sealCommand();
Command unsealCommand();
Command digestCommand();
Command languageCommand();
