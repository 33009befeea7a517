#pragma once

#include "../commands/Command.h"

Command addCommand();
Command listCommand();
Command showCommand();
Command withdrawCommand();
Command siteCommand();
Command verifyCommand();
