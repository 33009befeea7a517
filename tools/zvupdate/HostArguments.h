#pragma once

#include "../commands/Command.h"

#include <optional>

class Arguments;

/// The options for what a host tells the library.
namespace HostArguments {

CommandOption productID();
CommandOption productVersion();
CommandOption directory();

/// The directory's absolute path, when there is no problem.
QString absoluteDirectory(const Arguments &arguments);

/// What is wrong with them, if anything.
std::optional<QString> problem(const Arguments &arguments);

} // namespace HostArguments
