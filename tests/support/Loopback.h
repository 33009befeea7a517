#pragma once

#include "../../platform/Mutex.h"

#include <QByteArrayView>

#include <atomic>
#include <functional>
#include <list>
#include <thread>

/// TCP sockets on the loopback interface.
namespace Loopback {

/// Connects to a port; without success the socket is at its end.
int connect(quint16 port);
/// False when the peer has gone.
bool sendAll(int socket, QByteArrayView bytes);

/// Accepts connections on a port of its own, and has each served on a thread of its own until the
/// function returns; then its socket is closed. When the acceptor goes, all sockets are shut down
/// and the threads joined.
class Acceptor
{
public:
    using Serve = std::function<void(int socket)>;

    explicit Acceptor(Serve serve);
    ~Acceptor();

    Acceptor(const Acceptor &) = delete;
    Acceptor &operator=(const Acceptor &) = delete;

    quint16 port() const { return port_; }
    /// Whether it is on its way out. Any thread.
    bool isStopping() const { return stopping_; }

private:
    struct Connection
    {
        int socket = -1; // Changed by its thread under mutex_; -1 when it is over.
        std::thread thread;
    };

    void acceptConnections();

    const Serve serve_;
    int listener_ = -1;
    quint16 port_ = 0;
    std::atomic<bool> stopping_ = false;
    ZVPlatform::Mutex mutex_;
    std::list<Connection> connections_ ZVUPDATE_GUARDED_BY(mutex_);
    std::thread thread_;
};

} // namespace Loopback
