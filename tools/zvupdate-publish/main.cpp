#include "Commands.h"

#include "../commands/Console.h"
#include "../commands/Program.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    Program::openMissingStreams();
    const QCoreApplication application(argc, argv);
    Console console;
    const Program program{
        u"zvupdate-publish"_s,
        u"Publishes releases: keeps the catalogue of them, and makes a static site of it."_s,
        u"" ZVUPDATE_VERSION ""_s,
        {addCommand(), listCommand(), showCommand(), withdrawCommand(), siteCommand(),
         verifyCommand()}};
    const auto arguments = program.decoded(argc, argv, console);
    return arguments ? program.run(*arguments, console) : WrongArguments;
}
