#include "Commands.h"

#include "../commands/Console.h"
#include "../commands/Program.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    Console console;
    const QCoreApplication application(argc, argv);
    const Program program{
        u"zvupdate-publish"_s,
        u"Publishes releases: keeps the catalogue of them, and makes a static site of it."_s,
        u"" ZVUPDATE_VERSION ""_s,
        {addCommand(), editCommand(), listCommand(), showCommand(), signCommand(), attachCommand(),
         withdrawCommand(), undoCommand(), siteCommand(), rollbackCommand(), verifyCommand()}};
    return program.run(argc, argv, console);
}
