#include "SerialQueue.h"

#include "../Mutex.h"
#include "Worker.h"

#include <deque>
#include <new>
#include <system_error>
#include <utility>

namespace ZVPlatform {

struct SerialQueue::State
{
    void run();

    Mutex mutex;
    Condition changed;
    std::deque<std::function<void()>> jobs ZVUPDATE_GUARDED_BY(mutex);
    bool closing ZVUPDATE_GUARDED_BY(mutex) = false;
};

SerialQueue::SerialQueue(const QString &label) : label_(label), state_(std::make_shared<State>()) {}

SerialQueue::~SerialQueue()
{
    const MutexLock lock(state_->mutex);
    state_->closing = true;
    state_->changed.notify_one();
}

bool SerialQueue::async(std::function<void()> job)
{
    if (!worker_) {
        try {
            worker_ = std::make_unique<Worker>(label_, [state = state_] { state->run(); });
        } catch (const std::system_error &) {
            return false;
        }
    }
    {
        const MutexLock lock(state_->mutex);
        state_->jobs.push_back(std::move(job));
    }
    state_->changed.notify_one();
    return true;
}

void SerialQueue::State::run()
{
    MutexLock lock(mutex);
    for (;;) {
        while (!closing && jobs.empty())
            changed.wait(lock);
        if (jobs.empty())
            return;
        {
            const std::function<void()> job = std::move(jobs.front());
            jobs.pop_front();
            lock.unlock();
            try {
                job();
            } catch (const std::bad_alloc &) {
                // What it was doing ends there, like anything else that fails, and the host goes
                // on.
            }
        } // The job goes before the lock is taken again: it may hold the queue's last owner.
        lock.lock();
    }
}

} // namespace ZVPlatform
