#include "Loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

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

int Loopback::listen(quint16 &port)
{
    sockaddr_in own = address(0);
    socklen_t length = sizeof own;
    auto *const generic = reinterpret_cast<sockaddr *>(&own);
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::bind(listener, generic, length) != 0 || ::listen(listener, 64) != 0 ||
        ::getsockname(listener, generic, &length) != 0)
        qFatal("No port on the loopback interface can be listened on.");
    port = ntohs(own.sin_port);
    return listener;
}

int Loopback::accept(int listener)
{
    return withoutDelay(::accept(listener, nullptr, nullptr));
}

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

void Loopback::discardWhenClosed(int socket)
{
    const linger discard = {1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
}
