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
    static std::optional<Arguments> parse(const QString &program, const Command &command,
                                          const QStringList &arguments, QString *error);

    /// Whether help is asked for, in which case nothing else has been looked at.
    bool isHelp() const { return isHelp_; }

    bool isSet(const QString &option) const { return values_.contains(option); }
    /// The value of an option; absent when the option was not given.
    std::optional<QString> value(const QString &option) const;
    /// All values of an option that may be given several times, in their order.
    QStringList values(const QString &option) const { return values_.value(option); }
    /// The value of an option that is required, a path: made absolute and not simplified. Absent
    /// when the current directory has no name to begin with; error is then one line.
    std::optional<QString> absolutePath(const QString &option, QString *error) const;
    const QString &operand() const { return operand_; }

private:
    Arguments() = default;

    static std::optional<QString> problem(const CommandOption &option, bool isSet,
                                          const QStringList &values);
    std::optional<QString> takeOperand(const QString &program, const Command &command,
                                       const QStringList &operands);

    bool isHelp_ = false;
    QHash<QString, QStringList> values_; // Of the options given; of switches, empty.
    QString operand_;
};
