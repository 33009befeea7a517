#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

struct MHD_Connection;

/// Connections whose replies wait for time to pass. Each is taken up again after a moment and may
/// then be paused anew, so that no thread of the server waits. May be used from any thread.
class PausedConnections
{
public:
    /// end() must have been called if anything was paused.
    ~PausedConnections();

    /// Pauses a connection from inside the server's call that asks for more of its reply; false
    /// when the server ends.
    bool pause(MHD_Connection *connection);

    /// Takes up all connections and pauses none any more, as the server wants it before it stops.
    void end();

private:
    void run();
    void resumeAll(); // with mutex_ held

    std::mutex mutex_;
    std::condition_variable ending_;
    // Under mutex_.
    bool ended_ = false;
    std::vector<MHD_Connection *> connections_;
    std::thread thread_; // runs from the first pause on
};
