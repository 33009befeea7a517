#include "HttpTransfer.h"

#include "../KnownErrors.h"
#include "../Mutex.h"
#include "../threads/MainQueue.h"
#include "../threads/SerialQueue.h"

#include <QScopeGuard>

#include <functional>
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
            const MutexLock lock(delivering_);
            silent_ = true;
        }
        {
            const MutexLock lock(mutex_);
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
                const MutexLock lock(run_->mutex_);
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
        const MutexLock lock(delivering_);
        if (silent_)
            return;
        receiver = receiver_; // Which may cancel the transfer, and be let go by it.
        const Done answer = call(*receiver);
        const MutexLock state(mutex_);
        answer_ = answer;
    }

    // Has the main thread make the call, and waits for its answer, unless nobody is listening any
    // more.
    Done deliver(const Call &call)
    {
        const Failure unheard{networkError(NetworkError::Cancelled)};
        {
            const MutexLock lock(mutex_);
            if (cancelled_)
                return unheard;
            inDelivery_ = true;
            answer_ = unheard;
        }
        MainQueue::async(
            [ticket = std::make_shared<Ticket>(shared_from_this()), call] { ticket->make(call); });
        MutexLock lock(mutex_);
        while (inDelivery_ && !cancelled_)
            changed_.wait(lock);
        return inDelivery_ ? unheard : answer_;
    }

    // A call that was cancelled on its way may still be in the main queue; it is silent by then,
    // but must find the receiver's place and not a half-destroyed receiver.
    void letReceiverGo()
    {
        std::shared_ptr<HttpReceiver> receiver;
        const MutexLock lock(delivering_);
        silent_ = true;
        receiver.swap(receiver_);
    }

    HttpExchange exchange_;
    const Delivery delivery_;

    // Held during each call on the main thread. Recursive, since the receiver may cancel.
    RecursiveMutex delivering_;
    bool silent_ ZVUPDATE_GUARDED_BY(delivering_) = false;
    // Of the queue's thread alone, or used under delivering_ when the main thread makes the calls.
    std::shared_ptr<HttpReceiver> receiver_;

    Mutex mutex_;
    Condition changed_;
    bool inDelivery_ ZVUPDATE_GUARDED_BY(mutex_) = false;
    bool cancelled_ ZVUPDATE_GUARDED_BY(mutex_) = false;
    Done answer_ ZVUPDATE_GUARDED_BY(mutex_);
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
