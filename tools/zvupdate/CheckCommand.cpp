#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "Commands.h"
#include "HostOptions.h"
#include "PromptWindow.h"
#include "UpdateCheck.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QFileInfo>

#include <csignal>
#include <cstdio>
#include <memory>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr double lastVersionWithConnections = 1342.0;

Console *logConsole = nullptr; // Null while the log is silent.

void writeLog(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (logConsole)
        logConsole->complain(qFormatLogMessage(type, context, message));
    if (type != QtFatalMsg || logConsole)
        return;
    // Qt aborts when it cannot use the display that the application object was to use.
    static_cast<void>(std::fputs("zvupdate check: the display cannot be used; check DISPLAY, "
                                 "WAYLAND_DISPLAY and QT_QPA_PLATFORM\n",
                                 stderr));
    _exit(Failed);
}

// The application object, made while the log is silent: Qt remarks on a locale without UTF-8, which
// is none of the user's concern, as this program writes UTF-8 in any case.
std::unique_ptr<QCoreApplication> makeApplication(bool withWindow, Console &console)
{
    static char name[] = "zvupdate";
    static char *arguments[] = {name, nullptr};
    static int count = 1;
    qInstallMessageHandler(writeLog);
    auto application = withWindow ? PromptWindow::makeApplication(count, arguments)
                                  : std::make_unique<QCoreApplication>(count, arguments);
    logConsole = &console;
    return application;
}

// A reader of standard output that goes away, or a service, is noticed by the failing write. Not
// SIG_IGN, which programs started from here would inherit.
void surviveBrokenPipes()
{
    std::signal(SIGPIPE, [](int) {});
}

Result<void> validate(const CheckSettings &settings, bool showsWindow)
{
    if (showsWindow && !settings.productName)
        return Failure{
            u"--product-name is missing; give --product-name NAME for the window to show"_s};
    if (settings.productName && !showsWindow)
        return Failure{u"--product-name is for the window; give --show-window, too"_s};
    if (settings.onUpdate && !showsWindow)
        return Failure{u"--on-update is for the window; give --show-window, too"_s};
    if (showsWindow && !settings.withDelegate)
        return Failure{u"--show-window needs somebody to tell; leave out --no-delegate"_s};
    if (showsWindow)
        if (const auto found = PromptWindow::findDisplay(); !found)
            return Failure{u"--show-window: "_s + found.error()};
    const QFileInfo directory(settings.directory);
    if (directory.exists() && !directory.isDir())
        return Failure{u"--directory: %1 is not a directory; give one for the update files"_s.arg(
            settings.directory)};
    return {};
}

Outcome check(const Arguments &arguments, Console &console)
{
    const auto host = HostOptions::read(arguments);
    if (!host)
        return wrongArguments(host.error());
    const CheckSettings settings = {
        .productID = host->productID,
        .productVersion = host->productVersion,
        .directory = host->directory,
        .withDelegate = !arguments.isSet(u"no-delegate"_s),
        .isAskedFor = arguments.isSet(u"now"_s),
        .debug = arguments.isSet(u"debug"_s),
        .releaseKeys = host->releaseKeys,
        .productName = arguments.value(u"product-name"_s),
        .onUpdate = arguments.value(u"on-update"_s),
    };
    const bool showsWindow = arguments.isSet(u"show-window"_s);
    if (const auto valid = validate(settings, showsWindow); !valid)
        return wrongArguments(valid.error());

    if (arguments.value(u"mode"_s) == u"connection"_s)
        kZVAppKitVersionNumber = lastVersionWithConnections;
    surviveBrokenPipes();
    std::unique_ptr<QCoreApplication> application;
    StopSignals signals; // While the application object waits for its display, too.
    application = makeApplication(showsWindow, console);
    const auto reporter =
        arguments.isSet(u"json"_s) ? makeJsonReporter(console) : makeTextReporter(console);
    return UpdateCheck(settings, *reporter, console, signals).run();
}

} // namespace

Command checkCommand()
{
    return {
        .name = u"check"_s,
        .summary = u"Checks for an update, and fetches and verifies its installer"_s,
        .details =
            {u"Asks the update service for a version newer than the one given. If there is one, "
             "its installer is downloaded into the directory, going on with what an earlier run "
             "has left there, and verified. SIGINT and SIGTERM stop the download; what has been "
             "received is kept for the next run."_s,
             u"With --json, standard output is one JSON object a line:\n"
             "{\"event\":\"start\",\"interface\":2,\"program\":VERSION} before anything else\n"
             "{\"event\":\"result\",\"code\":N,\"outcome\":WORD,\"message\":TEXT} once the service "
             "has been "
             "asked\n"
             "{\"event\":\"offer\",\"version\":VERSION,\"notes\":TEXT} after the codes 1 and 2, "
             "with what is new, in the user's language\n"
             "{\"event\":\"progress\",\"received\":BYTES,\"total\":BYTES,\"rate\":BYTES} at most "
             "ten "
             "times a second; total is null while it is unknown, and the rate for each second\n"
             "{\"event\":\"ready\",\"path\":PATH} or {\"event\":\"failed\",\"reason\":TEXT,"
             "\"outcome\":WORD} in the end\n"
             "{\"event\":\"window\",\"action\":\"update\"|\"cancel\"|\"closed\"} after that, with "
             "--show-window"_s},
        .options = HostOptions::with(
            {{.name = u"now"_s,
              .help = u"The user asks: neither the switch nor the date of the next check holds the "
                      "check back, or is changed by it."_s},
             {.name = u"no-delegate"_s,
              .help = u"Fetches the installer for a later check: the verified file stays under its "
                      "temporary name."_s},
             {.name = u"mode"_s,
              .valueName = u"session|connection"_s,
              .help = u"How the download runs: reporting on a thread of its own, which is the "
                      "default, or on the main thread."_s,
              .choices = {u"session"_s, u"connection"_s}},
             {.name = u"show-window"_s,
              .help = u"Shows what is new when the installer is ready, and offers to open it. The "
                      "command ends with the choice."_s},
             {u"product-name"_s, u"NAME"_s, u"The product's name as the window shows it."_s},
             {u"on-update"_s, u"COMMAND"_s,
              u"What the shell is to run when the user chooses \"Update\", in the place of opening "
              "the installer, whose path is its first argument, $1."_s},
             {u"debug"_s, {}, u"Logs the steps of the check on standard error."_s},
             {u"json"_s, {}, u"Tells programs, rather than people, how the check goes."_s}}),
        .exitStatuses = {u"0 a verified installer is ready; 1 the download failed, or its file was "
                         "discarded; 2 wrong arguments; 3 there is no update, or the service could "
                         "not be asked; 4 not configured; 6 skipped, since automatic updating is "
                         "switched off or the next check is set to a later date; 130 and 143 "
                         "stopped by SIGINT and SIGTERM."_s},
        .examples = {u"check --product-id P1 --product-version 2100 --directory updates"_s,
                     u"check --product-id P1 --product-version 2100 --directory updates --json"_s,
                     u"check --product-id P1 --product-version 2100 --directory updates "
                     "--show-window --product-name \"Sample App\""_s},
        .run = check,
    };
}
