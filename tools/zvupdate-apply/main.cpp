#include "../commands/Console.h"
#include "../commands/Program.h"
#include "ApplyCommand.h"
#include "SelfCopy.h"

#include <QCoreApplication>

#include <csignal>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    Console console;
    SelfCopy::restoreEnvironment();
    // The host goes, and with it the terminal and whoever reads what is said here.
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    const QCoreApplication application(argc, argv);
    const Program program{.name = u"zvupdate-apply"_s,
                          .version = u"" ZVUPDATE_VERSION ""_s,
                          .commands = {applyCommand()}};
    return program.run(argc, argv, console);
}
