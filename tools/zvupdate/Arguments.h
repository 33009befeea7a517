#pragma once

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
    /// Reads what follows the command's name. Absent when something is wrong; error is then one
    /// line that names the argument and the remedy.
    static std::optional<Arguments> parse(const Command &command, const QStringList &arguments,
                                          QString *error);

    /// Whether help is asked for, in which case nothing else has been looked at.
    bool isHelp() const { return isHelp_; }

    bool isSet(const QString &option) const { return values_.contains(option); }
    /// The value of an option; absent when the option was not given.
    std::optional<QString> value(const QString &option) const;
    const QString &operand() const { return operand_; }

private:
    Arguments() = default;

    static std::optional<QString> problem(const CommandOption &option,
                                          const std::optional<QString> &value);
    std::optional<QString> takeOperand(const Command &command, const QStringList &operands);

    bool isHelp_ = false;
    QHash<QString, QString> values_; // Of the options given; of switches, empty.
    QString operand_;
};
