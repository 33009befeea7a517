#include "ServiceOptions.h"

#include <QCommandLineParser>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLongestTokenLifetime = 365 * 24 * 60 * 60;

constexpr auto kHelp = R"(Usage: zvupdate-service --directory DIR [options]

Serves the releases in a folder to update clients: for development and trials.

Options:
  --directory DIR           The folder to serve. Its releases.json names the
                            products, versions, installers and notes.
  --port N                  The TCP port to listen on; 0, the default, takes a
                            free one.
  --bind ADDRESS            The IPv4 or IPv6 address to listen on. The default,
                            127.0.0.1, is reached from this machine only.
  --token-lifetime SECONDS  How long a download token is good; default 3600.
  --write-override          Points the update clients of this user here, through
                            ~/Documents/ConsoleZVUpdate.mac, until the service
                            ends.
  --fault NAME[=AT]         Goes wrong on purpose; may be given several times.
  -h, --help                Shows this text.
  -v, --version             Shows the version.

The first line on standard output is the base URL for clients. The log goes to
standard error, a line an exchange. SIGINT and SIGTERM end the service. Changes
in the folder are noticed while it runs.

Faults:
  stall[=BYTE]              A download stands still before this byte of the file.
  cut[=BYTE]                A download is broken off there. Both are half way by
                            default, and spare a download that resumes there.
  slow[=RATE]               Downloads get so many bytes a second; default 10000.
  ignore-range              A download that resumes gets the whole file.
  wrong-digest              The digest announced is not the installer's.
  wrong-size[=BYTES]        The file's size is said to be this; by default one byte
                            more than it is. Too small a size cuts the file short.
  no-length                 No size is said, and downloads come in chunks.
  expired-token             Every token is refused, with status 403.
  server-error[=COMMAND]    checkupd, gettoken or download fails with status 500;
                            all of them by default.
While there is a file "faults" in the folder, its lines (NAME[=AT]) count in place
of the options. Each request looks at it anew.

Exit status: 0 stopped in order, 1 the service could not start, 2 wrong arguments.

Examples:
  zvupdate-service --directory releases
  zvupdate-service --directory releases --port 8080 --write-override
  zvupdate-service --directory releases --bind 0.0.0.0 --token-lifetime 60
  zvupdate-service --directory releases --fault cut=1000000 --fault slow=50000
)"_L1;

/// A whole number within bounds, both included.
std::optional<int> number(const QString &text, int least, int most)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    return ok && value >= least && value <= most ? std::optional(value) : std::nullopt;
}

} // namespace

std::optional<ServiceOptions> ServiceOptions::parse(const QStringList &arguments, QString *error)
{
    QCommandLineParser parser;
    parser.addOptions({{u"directory"_s, {}, u"DIR"_s},
                       {u"port"_s, {}, u"N"_s, u"0"_s},
                       {u"bind"_s, {}, u"ADDRESS"_s, u"127.0.0.1"_s},
                       {u"token-lifetime"_s, {}, u"SECONDS"_s, u"3600"_s},
                       {u"write-override"_s, {}},
                       {u"fault"_s, {}, u"NAME[=AT]"_s},
                       {{u"h"_s, u"help"_s}, {}},
                       {{u"v"_s, u"version"_s}, {}}});
    const auto fail = [error](const QString &text) {
        *error = text;
        return std::nullopt;
    };
    if (!parser.parse(arguments))
        return fail(parser.errorText() + u" See zvupdate-service --help."_s);

    ServiceOptions options;
    options.help = parser.isSet(u"help"_s);
    options.version = parser.isSet(u"version"_s);
    if (options.help || options.version)
        return options;
    if (!parser.positionalArguments().isEmpty())
        return fail(u"\"%1\" is not an option; name the folder with --directory DIR"_s.arg(
            parser.positionalArguments().first()));

    options.directory = parser.value(u"directory"_s);
    if (options.directory.isEmpty())
        return fail(u"--directory is missing; name the folder that holds releases.json"_s);
    if (!QFileInfo(options.directory).isDir())
        return fail(u"--directory: there is no folder \"%1\"; create it with a releases.json"_s.arg(
            options.directory));

    const auto port = number(parser.value(u"port"_s), 0, 65'535);
    if (!port)
        return fail(u"--port: \"%1\" is not a port; give a number from 0 to 65535"_s.arg(
            parser.value(u"port"_s)));
    options.address = SocketAddress::fromText(parser.value(u"bind"_s), static_cast<quint16>(*port));
    if (!options.address)
        return fail(u"--bind: \"%1\" is not an address; give one such as 127.0.0.1 or ::1"_s.arg(
            parser.value(u"bind"_s)));

    const auto lifetime = number(parser.value(u"token-lifetime"_s), 1, kLongestTokenLifetime);
    if (!lifetime)
        return fail(u"--token-lifetime: \"%1\" is no time; give seconds from 1 to %2"_s
                        .arg(parser.value(u"token-lifetime"_s))
                        .arg(kLongestTokenLifetime));
    options.tokenLifetime = std::chrono::seconds(*lifetime);
    const QStringList faults = parser.values(u"fault"_s);
    for (const QString &fault : faults) {
        if (const auto wrong = options.faults.add(fault))
            return fail(u"--fault: "_s + *wrong);
    }
    options.writeOverride = parser.isSet(u"write-override"_s);
    return options;
}

QString ServiceOptions::helpText()
{
    return kHelp;
}
