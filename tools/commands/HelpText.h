#pragma once

#include "Command.h"

#include <vector>

/// The texts of --help, made from the table of commands.
namespace HelpText {

QString ofProgram(const QString &program, const QString &summary,
                  const std::vector<Command> &commands);
/// Of a command that people call by that name.
QString ofCommand(const QString &name, const Command &command);

} // namespace HelpText
