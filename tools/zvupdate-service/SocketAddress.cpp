#include "SocketAddress.h"

#include <netdb.h>
#include <netinet/in.h>

#include <array>
#include <cstring>

using namespace Qt::StringLiterals;

std::optional<SocketAddress> SocketAddress::fromText(const QString &address, quint16 port)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (::getaddrinfo(address.toUtf8().constData(), QByteArray::number(port).constData(), &hints,
                      &found) != 0)
        return std::nullopt;
    const SocketAddress result(found->ai_addr);
    ::freeaddrinfo(found);
    return result;
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
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    ::getnameinfo(data(), size(), host.data(), host.size(), port.data(), port.size(),
                  NI_NUMERICHOST | NI_NUMERICSERV);
    return (family() == AF_INET6 ? u"[%1]:%2"_s : u"%1:%2"_s)
        .arg(QLatin1String(host.data()), QLatin1String(port.data()));
}

QString SocketAddress::reachable() const
{
    return toString().replace(u"0.0.0.0:"_s, u"127.0.0.1:"_s).replace(u"[::]:"_s, u"[::1]:"_s);
}
