#pragma once

#include "../commands/Command.h"

Command addCommand();
Command editCommand();
Command listCommand();
Command showCommand();
Command signCommand();
Command attachCommand();
Command withdrawCommand();
Command undoCommand();
Command siteCommand();
Command rollbackCommand();
Command verifyCommand();
