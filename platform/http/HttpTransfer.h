#pragma once

#include "HttpExchange.h"

#include <memory>
#include <optional>

namespace ZVPlatform {

class SerialQueue;

/// Hears of a background transfer. Its calls come one after another, all on the same thread; the
/// last is didFinish(). The transfer owns its observer until then and lets it go afterwards, also
/// when it could not be told of its end.
class HttpTransferObserver
{
public:
    virtual ~HttpTransferObserver() = default;

    virtual void didReceiveResponse(const HttpResponse &response) = 0;
    /// The next bytes of the body. Answering false ends the transfer with an error.
    virtual bool didReceiveData(const QByteArray &bytes) = 0;
    /// The transfer has ended: with a whole reply when there is no error.
    virtual void didFinish(const std::optional<Error> &error) = 0;
};

/// An HTTP exchange in the background.
class HttpTransfer
{
public:
    enum class Delivery {
        /// The observer is called on the queue's thread.
        Queue,
        /// The observer is called on the main thread, from its event loop; while that is busy the
        /// transfer waits.
        MainThread,
    };

    /// What is to be run, where it reports to, and on which queue it runs.
    HttpTransfer(HttpRequest request, std::shared_ptr<HttpTransferObserver> observer,
                 std::shared_ptr<SerialQueue> queue, Delivery delivery);
    ~HttpTransfer();

    HttpTransfer(const HttpTransfer &) = delete;
    HttpTransfer &operator=(const HttpTransfer &) = delete;

    /// Starts the transfer. To be called once, and with Delivery::MainThread on that. When the
    /// system has no thread for it, the observer hears of its end before this returns.
    void resume();

    /// Stops the transfer at once. With Delivery::Queue the observer still hears of the end, which
    /// is NetworkError::Cancelled unless the reply was complete; with Delivery::MainThread it hears
    /// nothing any more, and a call that the main thread is making is waited for. Any thread.
    void cancel();

private:
    class Run;

    const std::shared_ptr<SerialQueue> queue_;
    const std::shared_ptr<Run> run_; // Shared with the queue's job and with what is in delivery.
};

} // namespace ZVPlatform
