#pragma once

#include "Command.h"

#include <vector>

class Console;

/// A program that is made of commands, or is one.
struct Program
{
    QString name;
    /// What it is for, in one line; a program that is one command leaves that to the command.
    QString summary = {};
    QString version;
    /// In the order in which help lists them.
    std::vector<Command> commands;

    /// Does what the arguments say, and returns the exit status.
    int run(int argc, char *argv[], Console &console) const;

private:
    Outcome dispatch(const QStringList &arguments, Console &console) const;
    Outcome runCommand(const Command &command, const QStringList &rest, Console &console) const;
};
