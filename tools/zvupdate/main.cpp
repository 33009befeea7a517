#include "../commands/Console.h"
#include "../commands/Program.h"
#include "Commands.h"
#include "PromptWindow.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

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
    Console console;
    const bool wantsWindow = std::any_of(
        argv, argv + argc, [](std::string_view argument) { return argument == "--show-window"; });
    if (wantsWindow && !PromptWindow::isHere()) {
        handOverToWindowProgram(argv);
        console.complain(u"zvupdate: --show-window: the program zvupdate-window cannot be "
                         "started; install it beside this one"_s);
        return WrongArguments;
    }
    const Program program{u"zvupdate"_s,
                          u"Checks for updates of an application, fetches and verifies them."_s,
                          u"" ZVUPDATE_VERSION ""_s,
                          {checkCommand(), doctorCommand(), preferencesCommand(), sealCommand(),
                           unsealCommand(), digestCommand(), languageCommand()}};
    return program.run(argc, argv, console);
}
