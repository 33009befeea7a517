#include "ScriptedServer.h"

#include "../../service/HttpFunctionURLEncode.h"

#include <QtGlobal>

#include <optional>

#include <sys/socket.h>

namespace {

constexpr std::chrono::seconds patience(30);

// Takes a request from what has been received, and receives more as long as it takes. Nothing when
// the client has gone.
std::optional<ScriptedServer::Request> receiveRequest(int socket, QByteArray &received)
{
    qsizetype end = -1;
    while ((end = received.indexOf("\r\n\r\n")) < 0) {
        char buffer[4096];
        const ssize_t length = ::recv(socket, buffer, sizeof buffer, 0);
        if (length <= 0)
            return std::nullopt;
        received.append(buffer, length);
    }
    ScriptedServer::Request request;
    for (const QByteArray &line : received.left(end).split('\n'))
        request.headerLines.append(line.trimmed());
    received.remove(0, end + 4);
    const QByteArrayList requestLine = request.headerLines.takeFirst().split(' ');
    request.method = requestLine.value(0);
    request.target = requestLine.value(1);
    return request;
}

} // namespace

ScriptedServer::ScriptedServer(Handler handler) : handler_(std::move(handler)) {}

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
    ZVPlatform::MutexLock counting(mutex_);
    const int number = ++connections_;
    counting.unlock();
    QByteArray received;
    while (auto request = receiveRequest(socket, received)) {
        request->connection = number;
        {
            const ZVPlatform::MutexLock lock(mutex_);
            requests_.push_back(*request);
        }
        ZVPlatform::MutexLock lock(handling_);
        const Reply reply = handler_(*request);
        lock.unlock();
        if (!perform(reply, *request, socket))
            return;
    }
}

// False when the connection is over.
bool ScriptedServer::perform(const Reply &reply, const Request &request, int socket) const
{
    using Step = Reply::Step;
    for (const Step &step : reply.steps_) {
        switch (step.kind) {
        case Step::SendBody:
            if (request.method == "HEAD")
                break;
            [[fallthrough]];
        case Step::Send:
            if (!Loopback::sendAll(socket, step.bytes))
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
            Loopback::discardWhenClosed(socket);
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
    const auto deadline = std::chrono::steady_clock::now() + patience;
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
