#include "PausedConnections.h"

#include <microhttpd.h>

#include <chrono>

namespace {

constexpr std::chrono::milliseconds moment(20);

} // namespace

PausedConnections::~PausedConnections()
{
    if (thread_.joinable())
        thread_.join();
}

bool PausedConnections::pause(MHD_Connection *connection)
{
    const std::lock_guard lock(mutex_);
    if (ended_)
        return false;
    MHD_suspend_connection(connection);
    connections_.push_back(connection);
    if (!thread_.joinable())
        thread_ = std::thread(&PausedConnections::run, this);
    return true;
}

void PausedConnections::end()
{
    const std::lock_guard lock(mutex_);
    ended_ = true;
    ending_.notify_one();
    resumeAll();
}

void PausedConnections::run()
{
    std::unique_lock lock(mutex_);
    while (!ending_.wait_for(lock, moment, [this] { return ended_; }))
        resumeAll();
}

void PausedConnections::resumeAll()
{
    for (MHD_Connection *connection : connections_)
        MHD_resume_connection(connection);
    connections_.clear();
}
