#pragma once

#include "../commands/Command.h"

Command applyCommand();
