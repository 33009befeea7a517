#pragma once

#include "Command.h"

#include <vector>

/// A program that is made of commands.
struct Program
{
    QString name;
    /// What it is for, in one line.
    QString summary;
    QString version;
    /// In the order in which help lists them.
    std::vector<Command> commands;

    /// Does what the arguments, which begin with the command's name, say; returns the exit status.
    int run(const QStringList &arguments, Console &console) const;

    /// Gives standard streams that are missing something harmless to stand for them.
    static void openMissingStreams();

    /// The arguments as text. Absent when one is not UTF-8, which is then told: as text it would be
    /// another one, and a path the name of another file.
    std::optional<QStringList> decoded(int argc, char *argv[], Console &console) const;

private:
    int dispatch(const QStringList &arguments, Console &console) const;
    int runCommand(const Command &command, const QStringList &rest, Console &console) const;
};
