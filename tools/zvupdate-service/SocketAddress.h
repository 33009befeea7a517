#pragma once

#include <QString>

#include <sys/socket.h>

#include <optional>

/// An IPv4 or IPv6 address with a port.
class SocketAddress
{
public:
    /// From a numeric address; absent when the text is none.
    static std::optional<SocketAddress> fromText(const QString &address, quint16 port);

    /// The address that a socket is bound to.
    static SocketAddress ofSocket(int socket);

    /// A copy of what the system reports; address must not be null.
    explicit SocketAddress(const sockaddr *address);

    const sockaddr *data() const { return reinterpret_cast<const sockaddr *>(&storage_); }
    socklen_t size() const;
    int family() const { return storage_.ss_family; }

    /// "127.0.0.1:80" or "[::1]:80", as in a URL.
    QString toString() const;

    /// The same, with the loopback address for the one that stands for all of the machine's.
    QString reachable() const;

private:
    SocketAddress() = default;

    sockaddr_storage storage_{};
};
