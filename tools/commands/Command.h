#pragma once

#include "../../platform/Result.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <utility>

class Arguments;
class Console;

/// The exit statuses that all commands share.
enum ExitStatus { Success = 0, Failed = 1, WrongArguments = 2 };

/// Why a command did not do what it was to: a line for people, and the exit status.
struct CommandFailure
{
    // NOLINTNEXTLINE(google-explicit-constructor): most reasons are texts, and end with Failed.
    CommandFailure(QString text, int exitStatus = Failed)
        : reason(std::move(text)), status(exitStatus)
    {
    }

    QString reason;
    int status;
};

/// What a command ends with: its exit status, or why it failed.
using Outcome = ZVPlatform::Result<int, CommandFailure>;

inline ZVPlatform::Failure<CommandFailure> wrongArguments(const QString &reason)
{
    return {{reason, WrongArguments}};
}

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
    /// Whether all arguments after it are its values, whatever they look like.
    bool takesRest = false;
};

/// A command of the program: what its help and the reading of its arguments are made from, and what
/// it does.
struct Command
{
    /// Empty for a program that is one command.
    QString name = {};
    /// What it does, in one line.
    QString summary;
    /// Paragraphs that say more.
    QStringList details = {};
    /// What stands for its one operand in the help; empty when it takes none.
    QString operandName = {};
    QList<CommandOption> options = {};
    /// Paragraphs that tell what the exit statuses mean.
    QStringList exitStatuses;
    /// Arguments, the command's name first.
    QStringList examples;
    /// Does it. A failure is told by who calls this.
    Outcome (*run)(const Arguments &arguments, Console &console);
};
