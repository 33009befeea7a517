#include "SerialQueue.h"

#include "Worker.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

namespace ZVPlatform {

struct SerialQueue::State
{
    void run();

    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::deque<std::function<void()>> jobs;
    bool closing = false;
};

SerialQueue::SerialQueue(const QString &label) : label_(label), state_(std::make_shared<State>()) {}

SerialQueue::~SerialQueue()
{
    const std::lock_guard lock(state_->mutex);
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
        const std::lock_guard lock(state_->mutex);
        state_->jobs.push_back(std::move(job));
    }
    state_->changed.notify_one();
    return true;
}

void SerialQueue::State::run()
{
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return closing || !jobs.empty(); });
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
