#pragma once

#include "../commands/Command.h"

#include <optional>

/// The option --application, which chooses whose preferences are meant.
namespace Application {

CommandOption option();

/// Takes on the name of the application that the arguments choose, or the program's own. What is
/// wrong with the name, if anything.
std::optional<QString> choose(const Arguments &arguments);

} // namespace Application
