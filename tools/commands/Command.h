#pragma once

#include <QList>
#include <QString>
#include <QStringList>

class Arguments;
class Console;

/// The exit statuses that all commands share.
enum ExitStatus { Success = 0, Failure = 1, WrongArguments = 2 };

/// An option of a command.
struct CommandOption
{
    /// Without its dashes.
    QString name;
    /// What stands for the value in the help; empty for a switch.
    QString valueName = {};
    QString help = {};
    bool isRequired = false;
    /// The only values that are accepted; empty when any but an empty one is.
    QStringList choices = {};
    /// Whether it may be given several times.
    bool isRepeatable = false;
};

/// A command of the program: what its help and the reading of its arguments are made from, and what
/// it does.
struct Command
{
    QString name;
    /// What it does, in one line.
    QString summary;
    /// Paragraphs that say more.
    QStringList details;
    /// What stands for its one operand in the help; empty when it takes none.
    QString operandName = {};
    QList<CommandOption> options = {};
    /// Paragraphs that tell what the exit statuses mean.
    QStringList exitStatuses;
    /// Arguments, the command's name first.
    QStringList examples;
    /// Does it, and returns the exit status.
    int (*run)(const Arguments &arguments, Console &console);
};
