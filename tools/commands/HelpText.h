#pragma once

#include "Command.h"

#include <vector>

/// The texts of --help, made from the table of commands.
namespace HelpText {

QString ofProgram(const QString &program, const QString &summary,
                  const std::vector<Command> &commands);
QString ofCommand(const QString &program, const Command &command);

} // namespace HelpText
