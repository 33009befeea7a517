#pragma once

#include "../../platform/Result.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

struct Command;
struct CommandOption;

/// The arguments of one command, read and found to be right.
class Arguments
{
public:
    /// Reads what follows the command, which people call by that name. Fails with one line that
    /// names the argument and the remedy.
    static ZVPlatform::Result<Arguments> parse(const QString &name, const Command &command,
                                               const QStringList &arguments);

    /// What people call the command.
    const QString &command() const { return command_; }
    /// Whether help is asked for, in which case nothing else has been looked at.
    bool isHelp() const { return isHelp_; }

    bool isSet(const QString &option) const { return values_.contains(option); }
    /// The last value of an option; absent when the option was not given.
    std::optional<QString> value(const QString &option) const;
    /// All values of an option, in their order.
    QStringList values(const QString &option) const { return values_.value(option); }
    /// The value of an option that is a whole number, within bounds that are included.
    ZVPlatform::Result<int> number(const QString &option, int usual, int least, int most) const;
    /// The value of an option that is required, a path: made absolute and not simplified. Fails
    /// when the current directory has no name to begin with.
    ZVPlatform::Result<QString> absolutePath(const QString &option) const;
    const QString &operand() const { return operand_; }

private:
    Arguments() = default;

    ZVPlatform::Result<void> take(const CommandOption &option, bool isSet,
                                  const QStringList &values);
    ZVPlatform::Result<void> takeOperand(const QString &name, const Command &command,
                                         const QStringList &operands);

    QString command_;
    bool isHelp_ = false;
    QHash<QString, QStringList> values_; // Of the options given; of switches, empty.
    QString operand_;
};
