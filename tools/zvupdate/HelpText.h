#pragma once

#include "Command.h"

#include <vector>

/// The texts of --help, made from the table of commands.
namespace HelpText {

QString ofProgram(const std::vector<Command> &commands);
QString ofCommand(const Command &command);

} // namespace HelpText
