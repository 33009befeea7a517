#include "Program.h"

#include "Arguments.h"
#include "Console.h"
#include "HelpText.h"

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

int Program::run(int argc, char *argv[], Console &console) const
{
    QStringList arguments;
    Outcome outcome = Success;
    for (int i = 1; i < argc; ++i) {
        arguments.append(QString::fromUtf8(argv[i]));
        // As text it would be another, and a path the name of another file.
        if (outcome && arguments.last().toUtf8() != argv[i])
            outcome = wrongArguments(
                u"%1: \"%2\" is not UTF-8; give an argument that is"_s.arg(name, arguments.last()));
    }
    if (outcome)
        outcome = dispatch(arguments, console);
    if (!outcome)
        console.complain(outcome.error().reason);
    const int status = outcome ? *outcome : outcome.error().status;
    const auto failure = console.failure();
    if (!failure)
        return status;
    console.complain(u"%1: standard output cannot be written: %2"_s.arg(name, *failure));
    return status == Success ? Failed : status;
}

Outcome Program::dispatch(const QStringList &arguments, Console &console) const
{
    const QString wanted = arguments.value(0);
    if (wanted == u"-v"_s || wanted == u"--version"_s) {
        console.print(name + u' ' + version);
        return Success;
    }
    if (commands.front().name.isEmpty())
        return runCommand(commands.front(), arguments, console);
    if (wanted == u"-h"_s || wanted == u"--help"_s) {
        console.print(HelpText::ofProgram(name, summary, commands).chopped(1));
        return Success;
    }
    const auto command =
        std::find_if(commands.begin(), commands.end(),
                     [&wanted](const Command &each) { return each.name == wanted; });
    if (command != commands.end())
        return runCommand(*command, arguments.sliced(1), console);

    QStringList names;
    for (const Command &each : commands)
        names.append(each.name);
    const QString mistake =
        wanted.isEmpty() ? u"a command is missing"_s : u"\"%1\" is not a command"_s.arg(wanted);
    return wrongArguments(
        u"%1: %2; give one of %3, or --help"_s.arg(name, mistake, names.join(u", "_s)));
}

// What fails is told under the command's name.
Outcome Program::runCommand(const Command &command, const QStringList &rest, Console &console) const
{
    const QString called = command.name.isEmpty() ? name : name + u' ' + command.name;
    const auto failure = [&called](const QString &reason, int status) {
        return Failure{CommandFailure(called + u": "_s + reason, status)};
    };
    const auto arguments = Arguments::parse(called, command, rest);
    if (!arguments)
        return failure(arguments.error(), WrongArguments);
    if (arguments->isHelp()) {
        console.print(HelpText::ofCommand(called, command).chopped(1));
        return Success;
    }
    Outcome outcome = command.run(*arguments, console);
    if (!outcome)
        return failure(outcome.error().reason, outcome.error().status);
    return outcome;
}
