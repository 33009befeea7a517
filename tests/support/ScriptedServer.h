#pragma once

#include "../../platform/Mutex.h"
#include "Loopback.h"
#include "TlsContext.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QString>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// A place in a reply at which the server waits for the test. May be used on any thread.
class Gate
{
public:
    void open() { open_ = true; }
    bool isOpen() const { return open_; }
    /// Whether the server has come to the gate: all that stands before it in the reply is sent.
    bool isReached() const { return reached_; }

private:
    friend class ScriptedServer;

    std::atomic<bool> open_ = false;
    std::atomic<bool> reached_ = false;
};

/// An HTTP server on a port of its own on the loopback interface, which answers as its test tells
/// it to, also wrongly or not at all. It needs no event loop; its threads are joined when it goes,
/// whatever its clients do. Its functions may be called from any thread.
class ScriptedServer
{
public:
    /// A request as it arrived. Requests have no bodies here; one would show as a broken request.
    struct Request
    {
        int connection = 0; ///< The number of the TCP connection, from 1 on.
        QByteArray method;
        QByteArray target;
        QByteArrayList headerLines; ///< In their order, without line ends.

        /// The value of the first header field of that name; null when there is none.
        QByteArray header(const QByteArray &name) const;
        /// The command that is sealed in the target; empty when there is none.
        QString command() const;
    };

    /// What the server does upon a request, step by step. The connection is kept for the next
    /// request unless a step ends it.
    class Reply
    {
    public:
        /// A correct reply. The body is left out when the request was a HEAD; a Content-Length is
        /// added.
        static Reply whole(int status, const QByteArray &body = {},
                           const QByteArrayList &furtherHeaderLines = {});
        /// A file, served by the rules for HEAD and for a Range with an open end.
        static Reply file(const Request &request, const QByteArray &content);

        Reply &send(const QByteArray &bytes) { return add({Step::Send, bytes}); }
        /// Ends the connection when the gate has not been opened after half a minute.
        Reply &wait(std::shared_ptr<Gate> gate) { return add({Step::Wait, {}, std::move(gate)}); }
        /// Ends the connection in order.
        Reply &close() { return add({Step::Close}); }
        /// Breaks the connection.
        Reply &reset() { return add({Step::Reset}); }
        /// Lets time pass.
        Reply &pause(std::chrono::milliseconds time) { return add({Step::Pause, {}, {}, time}); }

        /// All that is sent, if nothing ends it.
        QByteArray bytes(const Request &request) const;

    private:
        friend class ScriptedServer;

        struct Step
        {
            enum Kind { Send, SendBody, Wait, Close, Reset, Pause } kind;
            QByteArray bytes = {};
            std::shared_ptr<Gate> gate = nullptr;
            std::chrono::milliseconds time = {};
        };
        Reply &add(Step step);

        std::vector<Step> steps_;
    };

    using Handler = std::function<Reply(const Request &)>;

    /// The handler is called on the server's threads, for one request at a time.
    explicit ScriptedServer(Handler handler);
    /// A server that answers every request alike.
    explicit ScriptedServer(const Reply &reply);

    /// A server that speaks TLS, and that clients may ask as a proxy to connect them to it first.
    ScriptedServer(Handler handler, Certificate certificate, bool isProxy = false);

    /// "127.0.0.1:PORT".
    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(acceptor_.port()); }
    /// "http://127.0.0.1:PORT", or https, with a path appended.
    QString url(const QString &path = {}) const
    {
        return (tls_ ? QStringLiteral("https://") : QStringLiteral("http://")) + address() + path;
    }
    /// What the library takes for the service's base URL.
    QString baseUrl() const { return url(QStringLiteral("/Update/ZVDLCtl.dll?dt=")); }

    void setHandler(Handler handler);

    /// The requests that have arrived up to now.
    std::vector<Request> requests() const;

private:
    struct Connection;

    void serve(int socket);
    bool becomeTunnel(Connection &connection);
    std::optional<Request> receiveRequest(Connection &connection);
    bool perform(const Reply &reply, const Request &request, Connection &connection) const;
    bool wait(Gate &gate) const;

    const std::shared_ptr<SSL_CTX> tls_;
    const bool isProxy_ = false;
    ZVPlatform::Mutex handling_;
    Handler handler_ ZVUPDATE_GUARDED_BY(handling_);

    mutable ZVPlatform::Mutex mutex_;
    int connections_ ZVUPDATE_GUARDED_BY(mutex_) = 0;
    std::vector<Request> requests_ ZVUPDATE_GUARDED_BY(mutex_);
    Loopback::Acceptor acceptor_{[this](int socket) { serve(socket); }};
};
