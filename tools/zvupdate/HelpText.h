#pragma once

#include "Program.h"

/// The texts of --help, made from the table of commands.
namespace HelpText {

QString ofProgram(const Program &program);
QString ofCommand(const QString &program, const Command &command);

} // namespace HelpText
