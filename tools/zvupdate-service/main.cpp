#include "CommandHandler.h"
#include "FaultsInForce.h"
#include "HttpServer.h"
#include "OverrideFile.h"
#include "ReleaseFolder.h"
#include "ServiceOptions.h"
#include "TokenStore.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void print(std::FILE *stream, const QString &text)
{
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fflush(stream);
}

int fail(int status, const QString &reason)
{
    print(stderr, u"zvupdate-service: "_s + reason + u'\n');
    return status;
}

/// The signals that end the service, a terminal that goes away among them.
sigset_t stopSignals()
{
    sigset_t signals = {};
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    return signals;
}

int serve(const ServiceOptions &options)
{
    ReleaseFolder folder(options.directory);
    if (const auto error = folder.load())
        return fail(1, *error);

    FaultsInForce faults(options.directory, options.faults);
    if (const auto error = faults.load())
        return fail(1, *error);

    // Blocked before there are threads, which inherit this: only sigwait() below receives them.
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a reader of the log may go away

    TokenStore tokens(options.tokenLifetime);
    CommandHandler commands(folder, tokens);
    HttpServer server([&](const Request &request) {
        return faults.now().answer(request, [&](const Request &r) { return commands.answer(r); });
    });
    if (const auto error = server.start(*options.address))
        return fail(1, u"cannot listen on %1: %2; choose another --port or --bind"_s.arg(
                           options.address->toString(), *error));
    const QString baseUrl = u"http://%1%2?dt="_s.arg(server.address().reachable().toString(),
                                                     QLatin1String(CommandHandler::commandPath));
    OverrideFile overrideFile;
    if (options.writeOverride) {
        if (const auto error = overrideFile.write(baseUrl))
            return fail(1, u"--write-override: "_s + *error);
    }
    print(stdout, baseUrl + u'\n');

    int received = 0;
    sigwait(&signals, &received);
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    // As text they would be others, and a path the name of another folder.
    for (int i = 1; i < argc; ++i) {
        if (QString::fromUtf8(argv[i]).toUtf8() != argv[i])
            return fail(2, u"\"%1\" is not UTF-8; give an argument that is"_s.arg(
                               QString::fromUtf8(argv[i])));
    }
    const QCoreApplication application(argc, argv);
    QString error;
    const auto options = ServiceOptions::parse(QCoreApplication::arguments(), &error);
    if (!options)
        return fail(2, error);
    if (options->help)
        print(stdout, ServiceOptions::helpText());
    else if (options->version)
        print(stdout, u"zvupdate-service " ZVUPDATE_VERSION "\n"_s);
    else
        return serve(*options);
    return 0;
}
