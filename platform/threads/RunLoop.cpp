#include "RunLoop.h"

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QTimer>

#include <thread>

namespace ZVPlatform {

namespace {

// How often finished() is asked while waiting.
constexpr std::chrono::milliseconds pollInterval(5);

} // namespace

void runCurrentRunLoop(std::chrono::milliseconds limit, const std::function<bool()> &finished)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    const auto over = [&] { return finished() || std::chrono::steady_clock::now() >= deadline; };

    if (!QAbstractEventDispatcher::instance()) {
        while (!over())
            std::this_thread::sleep_for(pollInterval);
        return;
    }
    // Event by event rather than with exec(), which does nothing once the thread was asked to quit.
    QEventLoop loop;
    QTimer waker;
    waker.start(pollInterval);
    while (!over())
        loop.processEvents(QEventLoop::ExcludeUserInputEvents | QEventLoop::WaitForMoreEvents);
}

} // namespace ZVPlatform
