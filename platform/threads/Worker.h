#pragma once

#include <QString>

#include <functional>
#include <thread>

namespace ZVPlatform {

/// A thread with a label that runs one function and is always joined.
///
/// It may be destroyed on its own thread, by the function it runs: that thread cannot wait for
/// itself, so it is joined when the next worker starts, or at the end of the process.
class Worker
{
public:
    /// Throws std::system_error when the system has no thread for it.
    Worker(const QString &label, std::function<void()> body);
    ~Worker();

    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

private:
    std::thread thread_;
};

} // namespace ZVPlatform
