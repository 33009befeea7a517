#include "HelpText.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype lineLength = 79;
constexpr qsizetype columnOfHelp = 26;

// Breaks text into lines that are indented by that many spaces.
QString wrapped(const QString &text, qsizetype indent)
{
    QString result;
    const QStringList paragraphs = text.split(u'\n');
    for (const QString &paragraph : paragraphs) {
        QString line;
        const QStringList words = paragraph.split(u' ');
        for (const QString &word : words) {
            if (!line.isEmpty() && indent + line.size() + 1 + word.size() > lineLength) {
                result += QString(indent, u' ') + line + u'\n';
                line.clear();
            }
            line += line.isEmpty() ? word : u' ' + word;
        }
        result += QString(indent, u' ') + line + u'\n';
    }
    return result;
}

// "  term    What it means", the meaning on a line of its own where the term is too long.
QString entry(const QString &term, const QString &meaning, qsizetype column)
{
    const QString start = u"  "_s + term;
    const QString text = wrapped(meaning, column);
    if (start.size() + 2 > column)
        return start + u'\n' + text;
    return start.leftJustified(column) + text.sliced(column);
}

QString section(const QString &title, const QString &content)
{
    return content.isEmpty() ? QString() : u'\n' + title + u":\n"_s + content;
}

QString term(const CommandOption &option)
{
    const QString name = u"--"_s + option.name;
    return option.valueName.isEmpty() ? name : name + u' ' + option.valueName;
}

QString usage(const QString &name, const Command &command)
{
    QString line = u"Usage: "_s + name;
    bool hasOptional = false;
    for (const CommandOption &option : command.options) {
        if (option.isRequired)
            line += u' ' + term(option);
        else
            hasOptional = true;
    }
    if (hasOptional)
        line += u" [options]"_s;
    if (!command.operandName.isEmpty())
        line += u' ' + command.operandName;
    return line + u'\n';
}

QString listOfExamples(const QString &name, const QStringList &examples)
{
    QString list;
    for (const QString &example : examples)
        list += u"  "_s + name.section(u' ', 0, 0) + u' ' + example + u'\n';
    return list;
}

QString versionEntry()
{
    return entry(u"-v, --version"_s, u"Shows the version."_s, columnOfHelp);
}

} // namespace

QString HelpText::ofProgram(const QString &program, const QString &summary,
                            const std::vector<Command> &commands)
{
    QString list;
    QString examples;
    for (const Command &command : commands) {
        list += entry(command.name, command.summary, 15);
        examples += listOfExamples(program, command.examples.mid(0, 1));
    }
    return u"Usage: %1 COMMAND [options]\n\n%2\n"_s.arg(program, summary) +
           section(u"Commands"_s, list) +
           section(u"Options"_s, entry(u"-h, --help"_s,
                                       u"Shows this text; after a command, that of the command."_s,
                                       columnOfHelp) +
                                     versionEntry()) +
           section(u"Examples"_s, examples);
}

QString HelpText::ofCommand(const QString &name, const Command &command)
{
    QString text = usage(name, command);
    const QStringList paragraphs = QStringList(command.summary + u'.') + command.details;
    for (const QString &paragraph : paragraphs)
        text += u'\n' + wrapped(paragraph, 0);

    QString options;
    for (const CommandOption &option : command.options)
        options += entry(term(option), option.help, columnOfHelp);
    options += entry(u"-h, --help"_s, u"Shows this text."_s, columnOfHelp);
    if (command.name.isEmpty())
        options += versionEntry();

    QString statuses;
    for (const QString &status : command.exitStatuses)
        statuses += wrapped(status, 2);
    return text + section(u"Options"_s, options) + section(u"Exit status"_s, statuses) +
           section(u"Examples"_s, listOfExamples(name, command.examples));
}
