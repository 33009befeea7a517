#include "FaultRelay.h"

#include "Loopback.h"

#include <QUrl>

#include <algorithm>
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

/// The two halves of a connection. Its thread closes the sockets when both directions are over.
struct FaultRelay::Connection
{
    int client = -1; // These two are changed under mutex_ only.
    int server = -1;
    std::atomic<bool> ended = false; ///< By the fault.
    std::thread thread;
};

/// What has passed in the direction that is spoiled.
struct FaultRelay::Passed
{
    qsizetype size = 0;
    QByteArray recent = {}; ///< What may have to be sent again.
    bool fault = false;
};

FaultRelay::FaultRelay(const QString &serverUrl, Fault fault, std::chrono::milliseconds patience)
    : fault_(std::move(fault)),
      serverPort_(static_cast<quint16>(QUrl(serverUrl).port())),
      patience_(patience)
{
    listener_ = Loopback::listen(port_);
    acceptor_ = std::thread([this] { acceptConnections(); });
}

FaultRelay::~FaultRelay()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    stops_.notify_all();
    const int waker = Loopback::connect(port_);
    acceptor_.join();
    ::close(waker);
    ::close(listener_);
    {
        const std::lock_guard lock(mutex_);
        for (const auto &connection : connections_)
            if (connection->client >= 0)
                end(*connection);
    }
    for (const auto &connection : connections_)
        connection->thread.join();
}

QString FaultRelay::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1/Update/ZVDLCtl.dll?dt=").arg(port_);
}

QByteArray FaultRelay::received(Direction direction) const
{
    const std::lock_guard lock(mutex_);
    return received_[direction];
}

void FaultRelay::acceptConnections()
{
    for (;;) {
        const int client = Loopback::accept(listener_);
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            ::close(client);
            return;
        }
        Connection &connection = *connections_.emplace_back(std::make_unique<Connection>());
        connection.client = client;
        connection.server = Loopback::connect(serverPort_);
        const timeval limit = {patience_.count() / 1000, patience_.count() % 1000 * 1000};
        ::setsockopt(connection.server, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        connection.thread = std::thread([this, &connection] { relay(connection); });
    }
}

void FaultRelay::relay(Connection &connection)
{
    std::thread toServer([&] { pump(connection, ToServer); });
    pump(connection, ToClient);
    toServer.join();
    const std::lock_guard lock(mutex_);
    ::close(std::exchange(connection.client, -1));
    ::close(std::exchange(connection.server, -1));
}

void FaultRelay::pump(Connection &connection, Direction direction)
{
    const int from = direction == ToServer ? connection.client : connection.server;
    const int to = direction == ToServer ? connection.server : connection.client;
    const bool spoils = fault_.kind != Fault::None && fault_.direction == direction;
    Passed passed;
    for (;;) {
        const QByteArray bytes = receive(from, direction);
        const bool isOver = bytes.isEmpty() || connection.ended;
        if (isOver ||
            !(spoils ? passOn(connection, to, bytes, passed) : Loopback::sendAll(to, bytes)))
            break;
    }
    if (!connection.ended)
        ::shutdown(to, SHUT_WR);
}

// Sends the bytes on, with the fault in its place. False when nothing more can be sent.
bool FaultRelay::passOn(Connection &connection, int to, QByteArray bytes, Passed &passed)
{
    const qsizetype ahead = fault_.at - passed.size; // Up to the fault; negative behind it.
    if (fault_.kind == Fault::Rewrite)
        overlay(bytes, ahead, fault_.bytes);
    const QByteArray head = bytes.left(std::max<qsizetype>(ahead, 0));
    if (!Loopback::sendAll(to, head))
        return false;
    passed.size += bytes.size();
    passed.recent = (passed.recent + head).right(fault_.length);
    if (!passed.fault && passed.size >= fault_.at) {
        passed.fault = true;
        happened_ = true;
        spoil(connection, to, passed.recent);
    }
    return !connection.ended && sendRest(to, QByteArrayView(bytes).sliced(head.size()));
}

// Empty when the sender has ended its side, or been silent for too long.
QByteArray FaultRelay::receive(int socket, Direction direction)
{
    QByteArray bytes(64 * 1024, Qt::Uninitialized);
    const ssize_t length = ::recv(socket, bytes.data(), static_cast<size_t>(bytes.size()), 0);
    bytes.resize(std::max<ssize_t>(length, 0));
    const std::lock_guard lock(mutex_);
    received_[direction] += bytes;
    return bytes;
}

// What happens once. Rewriting and dripping concern the bytes as they come.
void FaultRelay::spoil(Connection &connection, int to, const QByteArray &recent)
{
    switch (fault_.kind) {
    case Fault::Reset:
        Loopback::discardWhenClosed(connection.client);
        connection.ended = true;
        // Wakes the other direction, and says nothing to the client: that does the close.
        ::shutdown(connection.client, SHUT_RD);
        ::shutdown(connection.server, SHUT_RDWR);
        return;
    case Fault::Finish:
        connection.ended = true;
        end(connection);
        return;
    case Fault::Duplicate:
        Loopback::sendAll(to, recent);
        return;
    case Fault::None:
    case Fault::Drip:
    case Fault::Rewrite:
        return;
    }
}

bool FaultRelay::sendRest(int socket, QByteArrayView bytes)
{
    if (fault_.kind != Fault::Drip)
        return Loopback::sendAll(socket, bytes);
    while (!bytes.isEmpty()) {
        {
            std::unique_lock lock(mutex_);
            if (stops_.wait_for(lock, fault_.pause, [this] { return stopping_.load(); }))
                return false;
        }
        const qsizetype length = std::min(fault_.length, bytes.size());
        if (!Loopback::sendAll(socket, bytes.first(length)))
            return false;
        bytes = bytes.sliced(length);
    }
    return true;
}

void FaultRelay::end(const Connection &connection)
{
    ::shutdown(connection.client, SHUT_RDWR);
    ::shutdown(connection.server, SHUT_RDWR);
}
