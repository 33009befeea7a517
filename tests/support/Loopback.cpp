#include "Loopback.h"

#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in address(quint16 port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// What is sent goes out at once.
int withoutDelay(int socket)
{
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
}

} // namespace

int Loopback::connect(quint16 port)
{
    const sockaddr_in peer = address(port);
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    ::connect(socket, reinterpret_cast<const sockaddr *>(&peer), sizeof peer);
    return withoutDelay(socket);
}

bool Loopback::sendAll(int socket, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const ssize_t sent =
            ::send(socket, bytes.data(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        bytes = bytes.sliced(sent);
    }
    return true;
}

Loopback::Acceptor::Acceptor(Serve serve) : serve_(std::move(serve))
{
    sockaddr_in own = address(0);
    socklen_t length = sizeof own;
    auto *const generic = reinterpret_cast<sockaddr *>(&own);
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::bind(listener_, generic, length) != 0 || ::listen(listener_, 64) != 0 ||
        ::getsockname(listener_, generic, &length) != 0)
        qFatal("No port on the loopback interface can be listened on.");
    port_ = ntohs(own.sin_port);
    thread_ = std::thread([this] { acceptConnections(); });
}

Loopback::Acceptor::~Acceptor()
{
    stopping_ = true;
    // A connection of its own wakes the thread on every system.
    const int waker = connect(port_);
    thread_.join();
    ::close(waker);
    ::close(listener_);
    {
        const ZVPlatform::MutexLock lock(mutex_);
        for (const Connection &connection : connections_)
            if (connection.socket >= 0)
                ::shutdown(connection.socket, SHUT_RDWR);
    }
    for (Connection &connection : connections_)
        connection.thread.join();
}

void Loopback::Acceptor::acceptConnections()
{
    for (;;) {
        const int socket = withoutDelay(::accept(listener_, nullptr, nullptr));
        const ZVPlatform::MutexLock lock(mutex_);
        if (stopping_) {
            ::close(socket);
            return;
        }
        Connection &connection = connections_.emplace_back();
        connection.socket = socket;
        connection.thread = std::thread([this, &connection, socket] {
            serve_(socket);
            const ZVPlatform::MutexLock ending(mutex_);
            ::close(std::exchange(connection.socket, -1));
        });
    }
}
