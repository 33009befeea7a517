#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/Program.h"
#include "CommandHandler.h"
#include "HttpServer.h"
#include "OverrideFile.h"
#include "ReleaseFolder.h"
#include "TokenStore.h"

#include <QFileInfo>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

struct Settings
{
    QString directory;
    SocketAddress address;
    std::chrono::seconds tokenLifetime;
    Faults faults;
};

Result<Settings> settingsIn(const Arguments &arguments)
{
    const QString directory = *arguments.value(u"directory"_s);
    if (!QFileInfo(directory).isDir())
        return Failure{
            u"--directory: there is no folder \"%1\"; create it with a releases.json"_s.arg(
                directory)};
    const auto port = arguments.number(u"port"_s, 0, 0, 65'535);
    if (!port)
        return Failure{port.error()};
    const QString host = arguments.value(u"bind"_s).value_or(u"127.0.0.1"_s);
    const auto address = SocketAddress::fromText(host, static_cast<quint16>(*port));
    if (!address)
        return Failure{
            u"--bind: \"%1\" is not an address; give one such as 127.0.0.1 or ::1"_s.arg(host)};
    constexpr int aYear = 365 * 24 * 60 * 60;
    const auto lifetime = arguments.number(u"token-lifetime"_s, 3600, 1, aYear);
    if (!lifetime)
        return Failure{lifetime.error()};
    Faults faults;
    for (const QString &fault : arguments.values(u"fault"_s)) {
        if (const auto added = faults.add(fault); !added)
            return Failure{u"--fault: "_s + added.error()};
    }
    return Settings{directory, *address, std::chrono::seconds(*lifetime), faults};
}

// The signals that end the service, a terminal that goes away among them.
sigset_t stopSignals()
{
    sigset_t signals = {};
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    return signals;
}

Outcome serve(const Arguments &arguments, Console &console)
{
    const auto settings = settingsIn(arguments);
    if (!settings)
        return wrongArguments(settings.error());
    ReleaseFolder folder(settings->directory,
                         {settings->faults.hasWrongDigest, arguments.isSet(u"allow-unsigned"_s)});
    if (const auto loaded = folder.load(); !loaded)
        return Failure{loaded.error()};

    // Blocked before there are threads, which inherit this: only sigwait() below receives them.
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a reader of the log may go away

    TokenStore tokens(settings->tokenLifetime);
    CommandHandler commands(folder, tokens, settings->faults);
    HttpServer server([&commands](const Request &request) { return commands.answer(request); });
    if (const auto started = server.start(settings->address); !started)
        return Failure{u"cannot listen on %1: %2; choose another --port or --bind"_s.arg(
            settings->address.toString(), started.error())};
    const QString baseUrl = u"http://%1%2?dt="_s.arg(server.address().reachable(),
                                                     QLatin1String(CommandHandler::commandPath));
    OverrideFile overrideFile;
    if (arguments.isSet(u"write-override"_s)) {
        if (const auto written = overrideFile.write(baseUrl); !written)
            return Failure{u"--write-override: "_s + written.error()};
    }
    console.print(baseUrl);

    int received = 0;
    sigwait(&signals, &received);
    return Success;
}

Command serviceCommand()
{
    return {
        .summary = u"Serves the releases in a folder to update clients: for development and "
                   "trials"_s,
        .details =
            {u"The first line on standard output is the base URL for clients. The log goes to "
             "standard error, a line an exchange. SIGINT and SIGTERM end the service. Changes in "
             "the folder are noticed while it runs."_s,
             u"Faults:\n"
             "stall[=BYTE]: a download stands still before this byte of the file, or half way\n"
             "cut[=BYTE]: a download is broken off there; both spare one that resumes there\n"
             "wrong-digest: the digest announced is not the installer's"_s},
        .options = {{.name = u"directory"_s,
                     .valueName = u"DIR"_s,
                     .help = u"The folder to serve. Its releases.json names the products, "
                             "versions, installers and notes."_s,
                     .isRequired = true},
                    {.name = u"port"_s,
                     .valueName = u"N"_s,
                     .help = u"The TCP port to listen on; 0, the default, takes a free one."_s},
                    {.name = u"bind"_s,
                     .valueName = u"ADDRESS"_s,
                     .help = u"The IPv4 or IPv6 address to listen on. The default, 127.0.0.1, is "
                             "reached from this machine only."_s},
                    {.name = u"token-lifetime"_s,
                     .valueName = u"SECONDS"_s,
                     .help = u"How long a download token is good; default 3600."_s},
                    {.name = u"allow-unsigned"_s,
                     .help =
                         u"Also offers releases that are not signed as builds with release keys "
                         "demand it, which those will refuse."_s},
                    {.name = u"write-override"_s,
                     .help = u"Points the update clients of this user here, through "
                             "~/Documents/ConsoleZVUpdate.mac, until the service ends."_s},
                    {.name = u"fault"_s,
                     .valueName = u"NAME[=BYTE]"_s,
                     .help = u"Goes wrong on purpose; may be given several times."_s}},
        .exitStatuses =
            {u"0 stopped in order, 1 the service could not start, 2 wrong arguments."_s},
        .examples = {u"--directory releases"_s,
                     u"--directory releases --port 8080 --write-override"_s,
                     u"--directory releases --bind 0.0.0.0 --token-lifetime 60"_s,
                     u"--directory releases --fault cut=1000000"_s},
        .run = serve,
    };
}

} // namespace

int main(int argc, char *argv[])
{
    Console console;
    const Program program{.name = u"zvupdate-service"_s,
                          .version = u"" ZVUPDATE_VERSION ""_s,
                          .commands = {serviceCommand()}};
    return program.run(argc, argv, console);
}
