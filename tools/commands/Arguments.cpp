#include "Arguments.h"

#include "Command.h"

#include <QCommandLineParser>
#include <QDir>

#include <filesystem>
#include <system_error>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

Result<Arguments> Arguments::parse(const QString &name, const Command &command,
                                   const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOption({{u"h"_s, u"help"_s}, {}});
    qsizetype end = arguments.size(); // of what the parser gets
    for (const CommandOption &option : command.options) {
        parser.addOption({option.name, {}, option.takesRest ? QString() : option.valueName});
        if (const qsizetype found = arguments.indexOf(u"--"_s + option.name);
            option.takesRest && found >= 0)
            end = found + 1;
    }
    if (!parser.parse(QStringList(name) + arguments.first(end))) {
        QString reason = parser.errorText();
        reason.chop(reason.endsWith(u'.') ? 1 : 0);
        return Failure{u"%1; see \"%2 --help\""_s.arg(reason, name)};
    }

    Arguments result;
    result.command_ = name;
    result.isHelp_ = parser.isSet(u"help"_s);
    if (result.isHelp_)
        return result;
    for (const CommandOption &option : command.options) {
        const bool isSet = parser.isSet(option.name);
        if (option.takesRest && isSet)
            result.values_.insert(option.name, arguments.sliced(end));
        else if (const auto taken = result.take(option, isSet, parser.values(option.name)); !taken)
            return Failure{taken.error()};
    }
    if (const auto taken = result.takeOperand(name, command, parser.positionalArguments()); !taken)
        return Failure{taken.error()};
    return result;
}

std::optional<QString> Arguments::value(const QString &option) const
{
    const auto found = values_.constFind(option);
    return found == values_.constEnd() ? std::nullopt
                                       : std::optional(found->value(found->size() - 1));
}

Result<int> Arguments::number(const QString &option, int usual, int least, int most) const
{
    const QString text = value(option).value_or(QString::number(usual));
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    if (!isNumber || number < least || number > most)
        return Failure{u"--%1: \"%2\" is not possible; give a number from %3 to %4"_s.arg(
            option, text, QString::number(least), QString::number(most))};
    return number;
}

// A directory that has gone, or whose name is not UTF-8, would be taken for another.
Result<QString> Arguments::absolutePath(const QString &option) const
{
    const QString path = *value(option);
    std::error_code failure;
    const std::string current = std::filesystem::current_path(failure).string();
    const QString name = QString::fromStdString(current);
    if (path.startsWith(u'/') || (!failure && name.toStdString() == current))
        return QDir(name).absoluteFilePath(path);
    return Failure{u"--%1: the current directory has gone, or its name is not UTF-8; give an "
                   "absolute path"_s.arg(option)};
}

Result<void> Arguments::take(const CommandOption &option, bool isSet, const QStringList &values)
{
    if (!isSet && option.isRequired)
        return Failure{u"--%1 is missing; give --%1 %2"_s.arg(option.name, option.valueName)};
    for (const QString &value : values) {
        if (value.isEmpty())
            return Failure{u"--%1 is empty; give --%1 %2"_s.arg(option.name, option.valueName)};
        if (!option.choices.isEmpty() && !option.choices.contains(value))
            return Failure{u"--%1: \"%2\" is not possible; give %3"_s.arg(
                option.name, value, option.choices.join(u" or "_s))};
    }
    if (isSet)
        values_.insert(option.name, values);
    return {};
}

Result<void> Arguments::takeOperand(const QString &name, const Command &command,
                                    const QStringList &operands)
{
    const bool takesOperand = !command.operandName.isEmpty();
    if (operands.size() > (takesOperand ? 1 : 0))
        return Failure{
            u"\"%1\" is one argument too many; see \"%2 --help\""_s.arg(operands.last(), name)};
    operand_ = operands.value(0);
    if (takesOperand && operand_.isEmpty())
        return Failure{u"%1 is missing; give \"%2 %1\""_s.arg(command.operandName, name)};
    return {};
}
