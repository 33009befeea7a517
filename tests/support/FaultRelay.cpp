#include "FaultRelay.h"

#include <QUrl>

#include <algorithm>
#include <thread>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace {

// Puts the part of new bytes that falls within the others in their place.
void overlay(QByteArray &bytes, qsizetype at, const QByteArray &replacement)
{
    for (qsizetype i = 0; i < replacement.size(); ++i)
        if (at + i >= 0 && at + i < bytes.size())
            bytes[at + i] = replacement[i];
}

} // namespace

/// The two halves of a connection.
struct FaultRelay::Connection
{
    const int client;
    const int server;
    std::atomic<bool> ended = false; ///< By the fault.
    // In the direction that is spoiled:
    qsizetype passed = 0;
    QByteArray recent = {}; ///< What may have to be sent again.
    bool spoiled = false;
};

FaultRelay::FaultRelay(const QString &serverUrl, Fault fault, std::chrono::milliseconds patience)
    : fault_(std::move(fault)),
      serverPort_(static_cast<quint16>(QUrl(serverUrl).port())),
      patience_(patience)
{
}

QByteArray FaultRelay::received(Direction direction) const
{
    const ZVPlatform::MutexLock lock(mutex_);
    return received_[direction];
}

void FaultRelay::relay(int client)
{
    Connection connection{client, Loopback::connect(serverPort_)};
    const timeval limit = {patience_.count() / 1000, patience_.count() % 1000 * 1000};
    ::setsockopt(connection.server, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::thread toServer([&] { pump(connection, ToServer); });
    pump(connection, ToClient);
    toServer.join();
    ::close(connection.server);
}

void FaultRelay::pump(Connection &connection, Direction direction)
{
    const int from = direction == ToServer ? connection.client : connection.server;
    const int to = direction == ToServer ? connection.server : connection.client;
    const bool spoils = fault_.kind != Fault::None && fault_.direction == direction;
    for (;;) {
        const QByteArray bytes = receive(from, direction);
        const bool isOver = bytes.isEmpty() || connection.ended;
        if (isOver || !(spoils ? passOn(connection, to, bytes) : Loopback::sendAll(to, bytes)))
            break;
    }
    if (!connection.ended)
        ::shutdown(to, acceptor_.isStopping() ? SHUT_RDWR : SHUT_WR);
}

// Sends the bytes on, with the fault in its place. False when nothing more can be sent.
bool FaultRelay::passOn(Connection &connection, int to, QByteArray bytes)
{
    const qsizetype ahead = fault_.at - connection.passed; // Up to the fault; negative behind it.
    if (fault_.kind == Fault::Rewrite)
        overlay(bytes, ahead, fault_.bytes);
    const QByteArray head = bytes.left(std::max<qsizetype>(ahead, 0));
    if (!Loopback::sendAll(to, head))
        return false;
    connection.passed += bytes.size();
    connection.recent = (connection.recent + head).right(fault_.length);
    if (!connection.spoiled && connection.passed >= fault_.at) {
        connection.spoiled = true;
        spoil(connection, to);
    }
    return !connection.ended && sendRest(to, QByteArrayView(bytes).sliced(head.size()));
}

// Empty when the sender has ended its side, or been silent for too long.
QByteArray FaultRelay::receive(int socket, Direction direction)
{
    QByteArray bytes(64 * 1024, Qt::Uninitialized);
    const ssize_t length = ::recv(socket, bytes.data(), static_cast<size_t>(bytes.size()), 0);
    bytes.resize(std::max<ssize_t>(length, 0));
    const ZVPlatform::MutexLock lock(mutex_);
    received_[direction] += bytes;
    return bytes;
}

// What happens once. Rewriting and dripping concern the bytes as they come.
void FaultRelay::spoil(Connection &connection, int to)
{
    switch (fault_.kind) {
    case Fault::Reset:
        Loopback::discardWhenClosed(connection.client);
        [[fallthrough]];
    case Fault::Finish:
        connection.ended = true;
        // Wakes the other direction. Of a reset the client hears by the close.
        ::shutdown(connection.client, fault_.kind == Fault::Reset ? SHUT_RD : SHUT_RDWR);
        ::shutdown(connection.server, SHUT_RDWR);
        break;
    case Fault::Duplicate:
        Loopback::sendAll(to, connection.recent);
        break;
    case Fault::None:
    case Fault::Drip:
    case Fault::Rewrite:
        break;
    }
}

bool FaultRelay::sendRest(int socket, QByteArrayView bytes) const
{
    if (fault_.kind != Fault::Drip)
        return Loopback::sendAll(socket, bytes);
    while (!bytes.isEmpty() && !acceptor_.isStopping()) {
        std::this_thread::sleep_for(fault_.pause);
        const qsizetype length = std::min(fault_.length, bytes.size());
        if (!Loopback::sendAll(socket, bytes.first(length)))
            return false;
        bytes = bytes.sliced(length);
    }
    return bytes.isEmpty();
}
