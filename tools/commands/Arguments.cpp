#include "Arguments.h"

#include "Command.h"

#include <QCommandLineParser>
#include <QDir>

#include <filesystem>
#include <system_error>

using namespace Qt::StringLiterals;

std::optional<Arguments> Arguments::parse(const QString &program, const Command &command,
                                          const QStringList &arguments, QString *error)
{
    QCommandLineParser parser;
    parser.addOption({{u"h"_s, u"help"_s}, {}});
    for (const CommandOption &option : command.options)
        parser.addOption({option.name, {}, option.valueName});

    const auto refuse = [error](const QString &reason) {
        *error = reason;
        return std::nullopt;
    };
    if (!parser.parse(QStringList(command.name) + arguments)) {
        QString reason = parser.errorText();
        reason.chop(reason.endsWith(u'.') ? 1 : 0);
        return refuse(u"%1; see \"%2 %3 --help\""_s.arg(reason, program, command.name));
    }

    Arguments result;
    result.isHelp_ = parser.isSet(u"help"_s);
    if (result.isHelp_)
        return result;
    for (const CommandOption &option : command.options) {
        const QStringList values = parser.values(option.name);
        const bool isSet = parser.isSet(option.name);
        if (const auto reason = problem(option, isSet, values))
            return refuse(*reason);
        if (isSet)
            result.values_.insert(option.name, values);
    }
    if (const auto reason = result.takeOperand(program, command, parser.positionalArguments()))
        return refuse(*reason);
    return result;
}

std::optional<QString> Arguments::value(const QString &option) const
{
    const auto found = values_.constFind(option);
    return found == values_.constEnd() ? std::nullopt
                                       : std::optional(found->value(found->size() - 1));
}

// A directory that has gone, or whose name is not UTF-8, would be taken for another.
std::optional<QString> Arguments::absolutePath(const QString &option, QString *error) const
{
    const QString path = *value(option);
    std::error_code failure;
    const std::string current = std::filesystem::current_path(failure).string();
    const QString name = QString::fromStdString(current);
    if (path.startsWith(u'/') || (!failure && name.toStdString() == current))
        return QDir(name).absoluteFilePath(path);
    *error = u"--%1: the current directory has gone, or its name is not UTF-8; give an absolute "
             "path"_s.arg(option);
    return std::nullopt;
}

// What is wrong with an option; absent when it is right.
std::optional<QString> Arguments::problem(const CommandOption &option, bool isSet,
                                          const QStringList &values)
{
    if (!isSet) {
        if (option.isRequired)
            return u"--%1 is missing; give --%1 %2"_s.arg(option.name, option.valueName);
        return std::nullopt;
    }
    for (const QString &value : values) {
        if (value.isEmpty())
            return u"--%1 is empty; give --%1 %2"_s.arg(option.name, option.valueName);
        if (!option.choices.isEmpty() && !option.choices.contains(value))
            return u"--%1: \"%2\" is not possible; give %3"_s.arg(option.name, value,
                                                                  option.choices.join(u" or "_s));
    }
    return std::nullopt;
}

std::optional<QString> Arguments::takeOperand(const QString &program, const Command &command,
                                              const QStringList &operands)
{
    const bool takesOperand = !command.operandName.isEmpty();
    if (operands.size() > (takesOperand ? 1 : 0))
        return u"\"%1\" is one argument too many; see \"%2 %3 --help\""_s.arg(
            operands.last(), program, command.name);
    if (!takesOperand)
        return std::nullopt;
    operand_ = operands.value(0);
    if (operand_.isEmpty())
        return u"%1 is missing; give \"%2 %3 %1\""_s.arg(command.operandName, program,
                                                         command.name);
    return std::nullopt;
}
