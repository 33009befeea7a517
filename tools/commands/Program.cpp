#include "Program.h"

#include "Arguments.h"
#include "Console.h"
#include "HelpText.h"

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

int Program::run(const QStringList &arguments, Console &console) const
{
    const int status = dispatch(arguments, console);
    const auto failure = console.failure();
    if (!failure)
        return status;
    console.complain(u"%1: standard output cannot be written: %2"_s.arg(name, *failure));
    return status == Success ? Failure : status;
}

// A standard stream that was closed by whoever started the program would give its number to the
// next file opened, which would then get what is meant for the stream.
void Program::openMissingStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) [[maybe_unused]]
            const int opened = open("/dev/null", O_RDWR);
    }
}

std::optional<QStringList> Program::decoded(int argc, char *argv[], Console &console) const
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.append(QString::fromUtf8(argv[i]));
        if (arguments.last().toUtf8() != argv[i]) {
            console.complain(
                u"%1: \"%2\" is not UTF-8; give an argument that is"_s.arg(name, arguments.last()));
            return std::nullopt;
        }
    }
    return arguments;
}

int Program::dispatch(const QStringList &arguments, Console &console) const
{
    const QString wanted = arguments.value(0);
    if (wanted == u"-h"_s || wanted == u"--help"_s) {
        console.print(HelpText::ofProgram(name, summary, commands).chopped(1));
        return Success;
    }
    if (wanted == u"-v"_s || wanted == u"--version"_s) {
        console.print(name + u' ' + version);
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
    console.complain(
        u"%1: %2; give one of %3, or --help"_s.arg(name, mistake, names.join(u", "_s)));
    return WrongArguments;
}

int Program::runCommand(const Command &command, const QStringList &rest, Console &console) const
{
    QString error;
    const auto arguments = Arguments::parse(name, command, rest, &error);
    if (!arguments) {
        console.complain(u"%1 %2: %3"_s.arg(name, command.name, error));
        return WrongArguments;
    }
    if (!arguments->isHelp())
        return command.run(*arguments, console);
    console.print(HelpText::ofCommand(name, command).chopped(1));
    return Success;
}
