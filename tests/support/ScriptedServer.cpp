#include "ScriptedServer.h"

#include "../../service/HttpFunctionURLEncode.h"

#include <QtGlobal>

#include <algorithm>
#include <csignal>

#include <sys/socket.h>

/// In clear, until TLS begins.
struct ScriptedServer::Connection
{
    const int socket;
    int number = 0;
    std::unique_ptr<SSL, decltype(&SSL_free)> tls{nullptr, &SSL_free};
    QByteArray received = {};

    bool startTls(SSL_CTX *context)
    {
        tls.reset(SSL_new(context));
        SSL_set_fd(tls.get(), socket);
        return SSL_accept(tls.get()) == 1;
    }
    bool receive()
    {
        char buffer[16 * 1024];
        const ssize_t length = tls ? SSL_read(tls.get(), buffer, sizeof buffer)
                                   : ::recv(socket, buffer, sizeof buffer, 0);
        received.append(buffer, std::max<ssize_t>(length, 0));
        return length > 0;
    }
    bool send(const QByteArray &bytes) const
    {
        const auto size = static_cast<int>(bytes.size());
        return tls ? size == 0 || SSL_write(tls.get(), bytes.constData(), size) == size
                   : Loopback::sendAll(socket, bytes);
    }
};

ScriptedServer::ScriptedServer(Handler handler) : handler_(std::move(handler)) {}

ScriptedServer::ScriptedServer(Handler handler, Certificate certificate, bool isProxy)
    : tls_(tlsContext(certificate)), isProxy_(isProxy), handler_(std::move(handler))
{
}

ScriptedServer::ScriptedServer(const Reply &reply)
    : ScriptedServer([reply](const Request &) { return reply; })
{
}

void ScriptedServer::setHandler(Handler handler)
{
    const ZVPlatform::MutexLock lock(handling_);
    handler_ = std::move(handler);
}

std::vector<ScriptedServer::Request> ScriptedServer::requests() const
{
    const ZVPlatform::MutexLock lock(mutex_);
    return requests_;
}

void ScriptedServer::serve(int socket)
{
    Connection connection{socket};
    {
        const ZVPlatform::MutexLock lock(mutex_);
        connection.number = ++connections_;
    }
    // A client that has gone must not end the tests; OpenSSL has no flag for that.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    if (tls_ && !((!isProxy_ || becomeTunnel(connection)) && connection.startTls(tls_.get())))
        return;
    while (const auto request = receiveRequest(connection)) {
        ZVPlatform::MutexLock lock(handling_);
        const Reply reply = handler_(*request);
        lock.unlock();
        if (!perform(reply, *request, connection))
            return;
    }
}

bool ScriptedServer::becomeTunnel(Connection &connection)
{
    const auto request = receiveRequest(connection);
    return request && request->method == "CONNECT" &&
           connection.send("HTTP/1.1 200 Connected\r\n\r\n");
}

// Nothing when the client has gone.
std::optional<ScriptedServer::Request> ScriptedServer::receiveRequest(Connection &connection)
{
    qsizetype end = -1;
    while ((end = connection.received.indexOf("\r\n\r\n")) < 0)
        if (!connection.receive())
            return std::nullopt;
    Request request;
    request.connection = connection.number;
    for (const QByteArray &line : connection.received.left(end).split('\n'))
        request.headerLines.append(line.trimmed());
    connection.received.remove(0, end + 4);
    const QByteArrayList requestLine = request.headerLines.takeFirst().split(' ');
    request.method = requestLine.value(0);
    request.target = requestLine.value(1);
    const ZVPlatform::MutexLock lock(mutex_);
    requests_.push_back(request);
    return request;
}

// False when the connection is over.
bool ScriptedServer::perform(const Reply &reply, const Request &request,
                             Connection &connection) const
{
    using Step = Reply::Step;
    const linger discard = {1, 0}; // Lets the peer see a break, and not an end in order.
    for (const Step &step : reply.steps_) {
        switch (step.kind) {
        case Step::SendBody:
            if (request.method == "HEAD")
                break;
            [[fallthrough]];
        case Step::Send:
            if (!connection.send(step.bytes))
                return false;
            break;
        case Step::Wait:
            if (!wait(*step.gate))
                return false;
            break;
        case Step::Pause:
            std::this_thread::sleep_for(step.time);
            break;
        case Step::Reset:
            ::setsockopt(connection.socket, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
            [[fallthrough]];
        case Step::Close:
            return false;
        }
    }
    return true;
}

bool ScriptedServer::wait(Gate &gate) const
{
    gate.reached_ = true;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!gate.isOpen()) {
        if (acceptor_.isStopping() || std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

ScriptedServer::Reply ScriptedServer::Reply::whole(int status, const QByteArray &body,
                                                   const QByteArrayList &furtherHeaderLines)
{
    QByteArrayList lines = furtherHeaderLines;
    lines.prepend("HTTP/1.1 " + QByteArray::number(status) + " Scripted");
    lines.append("Content-Length: " + QByteArray::number(body.size()));
    Reply reply;
    reply.send(lines.join("\r\n") + "\r\n\r\n");
    return reply.add({Step::SendBody, body});
}

ScriptedServer::Reply ScriptedServer::Reply::file(const Request &request, const QByteArray &content)
{
    const QByteArray range = request.header("Range");
    if (!range.startsWith("bytes=") || !range.endsWith('-'))
        return whole(200, content);
    const QByteArray size = QByteArray::number(content.size());
    const qsizetype first = range.mid(6, range.size() - 7).toLongLong();
    if (first >= content.size())
        return whole(416, {}, {"Content-Range: bytes */" + size});
    return whole(206, content.mid(first),
                 {"Content-Range: bytes " + QByteArray::number(first) + '-' +
                  QByteArray::number(content.size() - 1) + '/' + size});
}

QByteArray ScriptedServer::Reply::bytes(const Request &request) const
{
    QByteArray all;
    for (const Step &step : steps_)
        if (step.kind != Step::SendBody || request.method != "HEAD")
            all += step.bytes;
    return all;
}

ScriptedServer::Reply &ScriptedServer::Reply::add(Step step)
{
    steps_.push_back(std::move(step));
    return *this;
}

QByteArray ScriptedServer::Request::header(const QByteArray &name) const
{
    for (const QByteArray &line : headerLines) {
        const qsizetype colon = line.indexOf(':');
        if (line.left(colon).compare(name, Qt::CaseInsensitive) == 0)
            return line.mid(colon + 1).trimmed();
    }
    return {};
}

QString ScriptedServer::Request::command() const
{
    const qsizetype key = target.indexOf("dt=");
    if (key < 0)
        return {};
    return HttpFunctionURLEncode::decode(QString::fromLatin1(target.mid(key + 3)))
        .value_or(QString());
}
