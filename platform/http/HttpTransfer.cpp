#include "HttpTransfer.h"

#include "../KnownErrors.h"
#include "../threads/MainQueue.h"
#include "../threads/SerialQueue.h"

#include <QScopeGuard>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>

namespace ZVPlatform {

using Done = Result<void, Error>; // Or why not.

/// The transfer while it lasts. It outlives the HttpTransfer object if it must. With
/// Delivery::MainThread it stands between the exchange and the receiver, and has the main thread
/// make each call.
class HttpTransfer::Run : public HttpReceiver, public std::enable_shared_from_this<Run>
{
public:
    Run(HttpRequest request, std::shared_ptr<HttpReceiver> receiver, Delivery delivery)
        : exchange_(std::move(request)), delivery_(delivery), receiver_(std::move(receiver))
    {
    }

    void run()
    {
        // Also when the receiver runs out of memory: its end is the end of the transfer.
        const auto letGo = qScopeGuard([this] { letReceiverGo(); });
        exchange_.run(delivery_ == Delivery::Queue ? *receiver_ : *this);
    }

    void endWithoutThread()
    {
        make([](HttpReceiver &receiver) {
            receiver.didFinish(Failure{networkError(NetworkError::Other)});
            return Done();
        });
        letReceiverGo();
    }

    void cancel()
    {
        if (delivery_ == Delivery::MainThread) {
            const std::lock_guard lock(delivering_);
            silent_ = true;
        }
        {
            const std::lock_guard lock(mutex_);
            cancelled_ = true;
        }
        changed_.notify_all();
        exchange_.cancel();
        if (delivery_ == Delivery::MainThread)
            letReceiverGo(); // Here rather than on the queue, whose thread its end may have to
                             // join.
    }

    void didReceiveResponse(const HttpResponse &response) override
    {
        static_cast<void>(deliver([response](HttpReceiver &receiver) {
            receiver.didReceiveResponse(response);
            return Done();
        }));
    }

    Done didReceiveData(const QByteArray &bytes) override
    {
        return deliver([bytes](HttpReceiver &receiver) { return receiver.didReceiveData(bytes); });
    }

    void didFinish(const Done &result) override
    {
        static_cast<void>(deliver([result](HttpReceiver &receiver) {
            receiver.didFinish(result);
            return Done();
        }));
    }

private:
    using Call = std::function<Done(HttpReceiver &)>;

    /// Tells the run when a call on its way through the main queue is over: made, or dropped.
    class Ticket
    {
    public:
        explicit Ticket(std::shared_ptr<Run> run) : run_(std::move(run)) {}
        ~Ticket()
        {
            {
                const std::lock_guard lock(run_->mutex_);
                run_->inDelivery_ = false;
            }
            run_->changed_.notify_all();
        }
        Ticket(const Ticket &) = delete;
        Ticket &operator=(const Ticket &) = delete;

        void make(const Call &call) { run_->make(call); }

    private:
        const std::shared_ptr<Run> run_;
    };

    // Makes the call here and now, unless nobody is listening any more.
    void make(const Call &call)
    {
        std::shared_ptr<HttpReceiver> receiver; // Goes after the lock.
        const std::lock_guard lock(delivering_);
        if (silent_)
            return;
        receiver = receiver_; // Which may cancel the transfer, and be let go by it.
        const Done answer = call(*receiver);
        const std::lock_guard state(mutex_);
        answer_ = answer;
    }

    // Has the main thread make the call, and waits for its answer, unless nobody is listening any
    // more.
    Done deliver(const Call &call)
    {
        const Failure unheard{networkError(NetworkError::Cancelled)};
        {
            const std::lock_guard lock(mutex_);
            if (cancelled_)
                return unheard;
            inDelivery_ = true;
            answer_ = unheard;
        }
        MainQueue::async(
            [ticket = std::make_shared<Ticket>(shared_from_this()), call] { ticket->make(call); });
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !inDelivery_ || cancelled_; });
        return inDelivery_ ? unheard : answer_;
    }

    // A call that was cancelled on its way may still be in the main queue; it is silent by then,
    // but must find the receiver's place and not a half-destroyed receiver.
    void letReceiverGo()
    {
        std::shared_ptr<HttpReceiver> receiver;
        const std::lock_guard lock(delivering_);
        silent_ = true;
        receiver.swap(receiver_);
    }

    HttpExchange exchange_;
    const Delivery delivery_;

    // Held during each call on the main thread. Recursive, since the receiver may cancel.
    std::recursive_mutex delivering_;
    bool silent_ = false;                    // Guarded by delivering_.
    std::shared_ptr<HttpReceiver> receiver_; // The queue's thread; guarded when delivered.

    std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    bool inDelivery_ = false;
    bool cancelled_ = false;
    Done answer_;
};

HttpTransfer::HttpTransfer(HttpRequest request, std::shared_ptr<HttpReceiver> receiver,
                           std::shared_ptr<SerialQueue> queue, Delivery delivery)
    : queue_(std::move(queue)),
      run_(std::make_shared<Run>(std::move(request), std::move(receiver), delivery))
{
}

HttpTransfer::~HttpTransfer() = default;

void HttpTransfer::resume()
{
    if (!queue_->async([run = run_] { run->run(); }))
        run_->endWithoutThread();
}

void HttpTransfer::cancel()
{
    run_->cancel();
}

} // namespace ZVPlatform
