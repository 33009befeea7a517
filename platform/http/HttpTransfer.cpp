#include "HttpTransfer.h"

#include "../threads/MainQueue.h"
#include "../threads/SerialQueue.h"
#include "HttpErrors.h"

#include <QScopeGuard>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>

namespace ZVPlatform {

/// The transfer while it lasts. It outlives the HttpTransfer object if it must.
class HttpTransfer::Run : public HttpReceiver, public std::enable_shared_from_this<Run>
{
public:
    Run(HttpRequest request, std::shared_ptr<HttpTransferObserver> observer, Delivery delivery)
        : exchange_(std::move(request)), delivery_(delivery), observer_(std::move(observer))
    {
    }

    void run()
    {
        // Also when the observer runs out of memory: its end is the end of the transfer.
        const auto letGo = qScopeGuard([this] { letObserverGo(); });
        const std::optional<Error> error = exchange_.run(*this);
        deliver([error](HttpTransferObserver &observer) { observer.didFinish(error); });
    }

    void endWithoutThread()
    {
        make([](HttpTransferObserver &observer) {
            observer.didFinish(networkError(NetworkError::Other));
        });
        letObserverGo();
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
            letObserverGo(); // Here rather than on the queue, whose thread its end may have to
                             // join.
    }

    void didReceiveResponse(const HttpResponse &response) override
    {
        deliver(
            [response](HttpTransferObserver &observer) { observer.didReceiveResponse(response); });
    }

    bool didReceiveData(const QByteArray &bytes) override
    {
        const bool isDelivered = deliver([this, bytes](HttpTransferObserver &observer) {
            isWanted_ = observer.didReceiveData(bytes);
        });
        return isDelivered && isWanted_;
    }

private:
    using Call = std::function<void(HttpTransferObserver &)>;

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
        std::shared_ptr<HttpTransferObserver> observer; // Goes after the lock.
        const std::lock_guard lock(delivering_);
        if (silent_)
            return;
        observer = observer_; // Which may cancel the transfer, and be let go by it.
        call(*observer);
        delivered_ = true;
    }

    // Makes the call and waits for it. False when it was not made: nobody is listening any more.
    template <class Work>
    bool deliver(const Work &call)
    {
        if (delivery_ == Delivery::Queue) {
            call(*observer_);
            return true;
        }
        {
            const std::lock_guard lock(mutex_);
            if (cancelled_)
                return false;
            inDelivery_ = true;
        }
        delivered_ = false;
        MainQueue::async(
            [ticket = std::make_shared<Ticket>(shared_from_this()), call] { ticket->make(call); });
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !inDelivery_ || cancelled_; });
        return !inDelivery_ && delivered_;
    }

    // A call that was cancelled on its way may still be in the main queue; it is silent by then,
    // but must find the observer's place and not a half-destroyed observer.
    void letObserverGo()
    {
        std::shared_ptr<HttpTransferObserver> observer;
        const std::lock_guard lock(delivering_);
        silent_ = true;
        observer.swap(observer_);
    }

    HttpExchange exchange_;
    const Delivery delivery_;

    // Held during each call on the main thread. Recursive, since the observer may cancel.
    std::recursive_mutex delivering_;
    bool silent_ = false;                            // Guarded by delivering_.
    std::shared_ptr<HttpTransferObserver> observer_; // The queue's thread; guarded when delivered.

    std::mutex mutex_;
    std::condition_variable changed_;
    bool inDelivery_ = false; // Guarded by mutex_.
    bool cancelled_ = false;  // Guarded by mutex_.
    std::atomic<bool> delivered_ = false;
    std::atomic<bool> isWanted_ = true;
};

HttpTransfer::HttpTransfer(HttpRequest request, std::shared_ptr<HttpTransferObserver> observer,
                           std::shared_ptr<SerialQueue> queue, Delivery delivery)
    : queue_(std::move(queue)),
      run_(std::make_shared<Run>(std::move(request), std::move(observer), delivery))
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
