#include "SocketAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <cstring>

std::optional<SocketAddress> SocketAddress::fromText(const QString &address, quint16 port)
{
    const QByteArray text = address.toLatin1();
    sockaddr_in v4{};
    sockaddr_in6 v6{};
    if (::inet_pton(AF_INET, text.constData(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        return SocketAddress(reinterpret_cast<const sockaddr *>(&v4));
    }
    if (::inet_pton(AF_INET6, text.constData(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        return SocketAddress(reinterpret_cast<const sockaddr *>(&v6));
    }
    return std::nullopt;
}

SocketAddress SocketAddress::ofSocket(int socket)
{
    SocketAddress address;
    socklen_t size = sizeof address.storage_;
    ::getsockname(socket, reinterpret_cast<sockaddr *>(&address.storage_), &size);
    return address;
}

SocketAddress::SocketAddress(const sockaddr *address)
{
    storage_.ss_family = address->sa_family;
    std::memcpy(&storage_, address, size());
}

socklen_t SocketAddress::size() const
{
    return family() == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
}

QString SocketAddress::toString() const
{
    std::array<char, INET6_ADDRSTRLEN> host{};
    if (family() == AF_INET6) {
        const auto *v6 = reinterpret_cast<const sockaddr_in6 *>(&storage_);
        ::inet_ntop(AF_INET6, &v6->sin6_addr, host.data(), host.size());
        return QStringLiteral("[%1]:%2").arg(QLatin1String(host.data())).arg(ntohs(v6->sin6_port));
    }
    const auto *v4 = reinterpret_cast<const sockaddr_in *>(&storage_);
    ::inet_ntop(AF_INET, &v4->sin_addr, host.data(), host.size());
    return QStringLiteral("%1:%2").arg(QLatin1String(host.data())).arg(ntohs(v4->sin_port));
}

SocketAddress SocketAddress::reachable() const
{
    SocketAddress result = *this;
    if (auto *v6 = reinterpret_cast<sockaddr_in6 *>(&result.storage_); family() == AF_INET6) {
        if (IN6_IS_ADDR_UNSPECIFIED(&v6->sin6_addr))
            v6->sin6_addr = in6addr_loopback;
    } else if (auto *v4 = reinterpret_cast<sockaddr_in *>(&result.storage_);
               v4->sin_addr.s_addr == htonl(INADDR_ANY)) {
        v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    return result;
}
