#include "StopSignals.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::array stopSignals = {SIGINT, SIGTERM};

// What the handler of a signal needs. Constant while handlers are installed, but for the switch.
std::array<QByteArray, stopSignals.size()> lastWordsOf;
int lastWordsDescriptor = -1;
std::array<int, 2> channel = {-1, -1};
std::atomic<bool> endsAtOnce = true;
static_assert(std::atomic<bool>::is_always_lock_free);

// Only what POSIX allows in a handler; a failed write leaves nothing to be done.
[[noreturn]] void endProcess(int signal)
{
    const QByteArray &words = lastWordsOf[signal == stopSignals[0] ? 0 : 1];
    [[maybe_unused]] const ssize_t written =
        write(lastWordsDescriptor, words.constData(), static_cast<size_t>(words.size()));
    _exit(128 + signal);
}

extern "C" void handleStopSignal(int signal)
{
    if (endsAtOnce.exchange(true))
        endProcess(signal);
    const int error = errno;
    const auto number = static_cast<char>(signal);
    [[maybe_unused]] const ssize_t written = write(channel[1], &number, 1);
    errno = error;
}

void install(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : stopSignals)
        sigaction(signal, &action, nullptr);
}

} // namespace

StopSignals::StopSignals(int descriptor,
                         const std::function<QByteArray(const QString &)> &lastWords)
{
    lastWordsDescriptor = descriptor;
    for (size_t i = 0; i < stopSignals.size(); ++i)
        lastWordsOf[i] = lastWords(name(stopSignals[i]));
    if (pipe2(channel.data(), O_CLOEXEC | O_NONBLOCK) == 0)
        install(handleStopSignal);
}

StopSignals::~StopSignals()
{
    install(SIG_DFL);
    notifier_.reset();
    for (int &end : channel)
        close(std::exchange(end, -1));
}

void StopSignals::take(Handler handler)
{
    handler_ = std::move(handler);
    notifier_.emplace(channel[0], QSocketNotifier::Read);
    QObject::connect(&*notifier_, &QSocketNotifier::activated, &*notifier_, [this] {
        char number = 0;
        if (read(channel[0], &number, 1) == 1)
            handler_(number);
    });
    endsAtOnce = false;
}

void StopSignals::leave()
{
    endsAtOnce = true;
}

QString StopSignals::name(int signal)
{
    return signal == SIGINT ? QStringLiteral("SIGINT") : QStringLiteral("SIGTERM");
}
