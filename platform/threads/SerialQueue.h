#pragma once

#include <QString>

#include <functional>
#include <memory>

namespace ZVPlatform {

class Worker;

/// A queue with a label that runs one job after another, in order, on a thread of its own. The
/// thread comes with the first job; the destructor lets the jobs already queued finish and joins
/// the thread. It may be destroyed by a job of its own.
class SerialQueue
{
public:
    explicit SerialQueue(const QString &label);
    ~SerialQueue();

    SerialQueue(const SerialQueue &) = delete;
    SerialQueue &operator=(const SerialQueue &) = delete;

    const QString &label() const { return label_; }

    /// Queues a job and returns at once. False, without queueing it, when the system has no thread
    /// for the queue. From one thread at a time.
    [[nodiscard]] bool async(std::function<void()> job);

private:
    struct State;

    const QString label_;
    const std::shared_ptr<State> state_; // Shared with the thread, which may outlive the queue.
    std::unique_ptr<Worker> worker_;
};

} // namespace ZVPlatform
