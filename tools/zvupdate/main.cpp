#include "Arguments.h"
#include "Commands.h"
#include "Console.h"
#include "HelpText.h"
#include "PromptWindow.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A standard stream that was closed by whoever started the program would give its number to the
// next file opened, which would then get what is meant for the stream.
void openMissingStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) [[maybe_unused]]
            const int opened = open("/dev/null", O_RDWR);
    }
}

int refuse(Console &console, const QString &reason)
{
    console.complain(u"zvupdate: "_s + reason);
    return WrongArguments;
}

int runCommand(const Command &command, const QStringList &rest, Console &console)
{
    QString error;
    const auto arguments = Arguments::parse(command, rest, &error);
    if (!arguments) {
        console.complain(u"zvupdate %1: %2"_s.arg(command.name, error));
        return WrongArguments;
    }
    if (!arguments->isHelp())
        return command.run(*arguments, console);
    console.print(HelpText::ofCommand(command).chopped(1));
    return Success;
}

int run(const QStringList &arguments, Console &console)
{
    const std::vector<Command> commands = allCommands();
    const QString name = arguments.value(0);
    if (name == u"-h"_s || name == u"--help"_s) {
        console.print(HelpText::ofProgram(commands).chopped(1));
        return Success;
    }
    if (name == u"-v"_s || name == u"--version"_s) {
        console.print(u"zvupdate " ZVUPDATE_VERSION ""_s);
        return Success;
    }
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [&name](const Command &each) { return each.name == name; });
    if (command != commands.end())
        return runCommand(*command, arguments.sliced(1), console);

    QStringList names;
    for (const Command &each : commands)
        names.append(each.name);
    const QString remedy = u"give one of "_s + names.join(u", "_s) + u", or --help"_s;
    if (name.isEmpty())
        return refuse(console, u"a command is missing; "_s + remedy);
    return refuse(console, u"\"%1\" is not a command; "_s.arg(name) + remedy);
}

// The program with the window is the same as this one, and lies beside it. Returns when it cannot
// be started.
void handOverToWindowProgram(char *argv[])
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return;
    const auto other = self.parent_path() / "zvupdate-window";
    execv(other.c_str(), argv);
}

} // namespace

int main(int argc, char *argv[])
{
    openMissingStreams();
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));

    Console console;
    if (arguments.contains(u"--show-window"_s) && !PromptWindow::isHere()) {
        handOverToWindowProgram(argv);
        return refuse(console, u"--show-window: the program zvupdate-window cannot be started; "
                               "install it beside this one"_s);
    }
    const int status = run(arguments, console);
    const auto failure = console.failure();
    if (!failure)
        return status;
    console.complain(u"zvupdate: standard output cannot be written: %1"_s.arg(*failure));
    return status == Success ? Failure : status;
}
