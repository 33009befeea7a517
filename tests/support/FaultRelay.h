#pragma once

#include "../../platform/Mutex.h"
#include "Loopback.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <chrono>
#include <limits>

/// A TCP relay on a port of its own on the loopback interface, which stands between the library and
/// a server and spoils what passes, at an exact byte. So the servers of the tests can stay correct.
/// It needs no event loop; its functions may be called from any thread.
class FaultRelay
{
public:
    enum Direction { ToServer, ToClient };

    /// What happens to every connection when so many bytes have passed in one direction. Those
    /// before the fault have been sent on by then.
    struct Fault
    {
        enum Kind { None, Finish, Reset, Drip, Duplicate, Rewrite };

        Kind kind = None;
        Direction direction = ToClient;
        qsizetype at = 0;
        /// Drip: the bytes sent at a time. Duplicate: how many of the latest bytes are sent again.
        qsizetype length = 1;
        /// Drip: the time between two sends.
        std::chrono::milliseconds pause{0};
        /// Rewrite: what takes the place of as many bytes.
        QByteArray bytes = {};
    };

    /// Both ends see the connection end in order.
    static Fault finish(Direction way, qsizetype at) { return {Fault::Finish, way, at}; }
    /// The client sees the connection break.
    static Fault reset(Direction way, qsizetype at) { return {Fault::Reset, way, at}; }
    static Fault drip(Direction way, qsizetype at, qsizetype length,
                      std::chrono::milliseconds pause)
    {
        return {Fault::Drip, way, at, length, pause};
    }
    /// What comes later is sent by itself.
    static Fault split(Direction way, qsizetype at)
    {
        return drip(way, at, std::numeric_limits<qsizetype>::max(), std::chrono::milliseconds(1));
    }
    static Fault duplicate(Direction way, qsizetype at, qsizetype length)
    {
        return {Fault::Duplicate, way, at, length};
    }
    static Fault rewrite(Direction way, qsizetype at, const QByteArray &bytes)
    {
        return {Fault::Rewrite, way, at, bytes.size(), {}, bytes};
    }

    /// A relay to a server on the loopback interface, of which only the port of the URL counts. The
    /// client sees the end of a connection on which the server is silent for too long, if a time is
    /// given for that.
    FaultRelay(const QString &serverUrl, Fault fault, std::chrono::milliseconds patience = {});
    /// A relay without a fault.
    explicit FaultRelay(const QString &serverUrl) : FaultRelay(serverUrl, Fault{}) {}

    /// What the library takes for the service's base URL.
    QString baseUrl() const
    {
        return QStringLiteral("http://127.0.0.1:%1/Update/ZVDLCtl.dll?dt=").arg(acceptor_.port());
    }

    /// What has arrived in one direction up to now, on all connections together.
    QByteArray received(Direction direction) const;

private:
    struct Connection;

    void relay(int client);
    void pump(Connection &connection, Direction direction);
    bool passOn(Connection &connection, int to, QByteArray bytes);
    QByteArray receive(int socket, Direction direction);
    void spoil(Connection &connection, int to);
    bool sendRest(int socket, QByteArrayView bytes) const;

    const Fault fault_;
    const quint16 serverPort_;
    const std::chrono::milliseconds patience_;
    mutable ZVPlatform::Mutex mutex_;
    QByteArray received_[2] ZVUPDATE_GUARDED_BY(mutex_);
    Loopback::Acceptor acceptor_{[this](int client) { relay(client); }};
};
