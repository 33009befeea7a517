#include "StopSignals.h"

#include "../commands/Console.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

namespace {

constexpr std::array stopSignals = {SIGINT, SIGTERM};
constexpr itimerspec patience = {.it_interval = {},
                                 .it_value = {.tv_sec = 0, .tv_nsec = 500'000'000}};

// What the handler of a signal needs. Constant while it looks at it, but for the atomics.
std::array<QByteArray, stopSignals.size()> lastWordsOf;
std::atomic<int> lastWordsDescriptor = -1; // Negative when there are none to be said.
std::array<int, 2> channel = {-1, -1};
timer_t timer = {}; // Sends SIGALRM when the handler's way has taken too long.
std::atomic<bool> endsAtOnce = true;
std::atomic<int> handedOver = 0; // The signal that is on that way.
sigset_t maskBefore = {};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

// Only what POSIX allows in a handler. A failed write leaves nothing to be done, and one that would
// wait for a reader is not begun.
[[noreturn]] void endProcess(int signal)
{
    const QByteArray &words = lastWordsOf[signal == stopSignals[0] ? 0 : 1];
    pollfd output = {.fd = lastWordsDescriptor, .events = POLLOUT, .revents = 0};
    const bool isInTheWay = output.fd == STDOUT_FILENO && Console::isWithinLine;
    if (!isInTheWay && poll(&output, 1, 0) == 1) [[maybe_unused]]
        const ssize_t written =
            write(output.fd, words.constData(), static_cast<size_t>(words.size()));
    _exit(128 + signal);
}

extern "C" void handleStopSignal(int signal)
{
    if (endsAtOnce.exchange(true))
        endProcess(signal);
    const int error = errno;
    handedOver = signal;
    timer_settime(timer, 0, &patience, nullptr);
    const auto number = static_cast<char>(signal);
    [[maybe_unused]] const ssize_t written = write(channel[1], &number, 1);
    errno = error;
}

extern "C" void handleImpatience(int /*signal*/)
{
    endProcess(handedOver);
}

void install(void (*handler)(int), void (*alarmHandler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : stopSignals)
        sigaction(signal, &action, nullptr);
    action.sa_handler = alarmHandler;
    sigaction(SIGALRM, &action, nullptr);
}

// Whoever started this process may have blocked them, and then no handler would ever be called.
// Programs started from here find them as this one did.
void unblock()
{
    sigset_t signals = {};
    sigemptyset(&signals);
    for (const int signal : stopSignals)
        sigaddset(&signals, signal);
    sigaddset(&signals, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &signals, &maskBefore);
    pthread_atfork(nullptr, nullptr, [] { pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr); });
}

} // namespace

StopSignals::StopSignals()
{
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    if (pipe2(channel.data(), O_CLOEXEC | O_NONBLOCK) == 0 &&
        timer_create(CLOCK_MONOTONIC, &event, &timer) == 0) {
        install(handleStopSignal, handleImpatience);
        unblock();
    }
}

StopSignals::~StopSignals()
{
    // What is installed stays, and does without what goes now.
    leave();
    dropLastWords();
    timer_delete(timer);
    notifier_.reset();
    for (int &end : channel)
        close(std::exchange(end, -1));
}

void StopSignals::setLastWords(int descriptor,
                               const std::function<QByteArray(const QString &)> &lastWords)
{
    for (size_t i = 0; i < stopSignals.size(); ++i)
        lastWordsOf[i] = lastWords(name(stopSignals[i]));
    lastWordsDescriptor = descriptor; // Only now does the handler look at them.
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

void StopSignals::dropLastWords()
{
    lastWordsDescriptor = -1;
}

QString StopSignals::name(int signal)
{
    return signal == SIGINT ? QStringLiteral("SIGINT") : QStringLiteral("SIGTERM");
}
