#pragma once

#include "../commands/Command.h"

Command checkCommand();
Command doctorCommand();
Command preferencesCommand();
Command sealCommand();
Command unsealCommand();
Command digestCommand();
Command languageCommand();
