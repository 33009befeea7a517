#pragma once

#include <functional>

namespace ZVPlatform {

/// The queue of the application object's thread: jobs run there in order, each from its event loop,
/// never inside the call that queued it.
class MainQueue
{
public:
    /// Queues a job. Any thread. Without an application object, or when that goes before the job's
    /// turn, the job is destroyed without having run; in the first case the log says so.
    static void async(std::function<void()> job);
};

} // namespace ZVPlatform
