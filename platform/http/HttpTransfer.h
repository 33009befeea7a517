#pragma once

#include "HttpExchange.h"

#include <memory>

namespace ZVPlatform {

class SerialQueue;

/// An HTTP exchange in the background. It owns its receiver, and lets it go after the last call, or
/// when that could not be made.
class HttpTransfer
{
public:
    enum class Delivery {
        /// The receiver is called on the queue's thread.
        Queue,
        /// The receiver is called on the main thread, from its event loop; while that is busy the
        /// transfer waits.
        MainThread,
    };

    /// What is to be run, where it reports to, and on which queue it runs.
    HttpTransfer(HttpRequest request, std::shared_ptr<HttpReceiver> receiver,
                 std::shared_ptr<SerialQueue> queue, Delivery delivery);
    ~HttpTransfer();

    HttpTransfer(const HttpTransfer &) = delete;
    HttpTransfer &operator=(const HttpTransfer &) = delete;

    /// Starts the transfer. To be called once, and with Delivery::MainThread on that. When the
    /// system has no thread for it, the receiver hears of its end before this returns.
    void resume();

    /// Stops the transfer at once. With Delivery::Queue the receiver still hears of the end, which
    /// is NetworkError::Cancelled unless the reply was complete; with Delivery::MainThread it hears
    /// nothing any more, and a call that the main thread is making is waited for. Any thread.
    void cancel();

private:
    class Run;

    const std::shared_ptr<SerialQueue> queue_;
    const std::shared_ptr<Run> run_; // Shared with the queue's job and with what is in delivery.
};

} // namespace ZVPlatform
