#include "HttpServer.h"

#include "ServiceLog.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

using namespace ZVPlatform;

namespace {

// A connection over which nothing moves is given up after this time. Long, since a host under a
// debugger stands still for minutes.
constexpr unsigned idleSeconds = 600;

/// One request and its reply, from the request's first line until the reply is gone.
struct Exchange
{
    QByteArray peer;
    QByteArray method;
    std::optional<Reply> reply;
};

QByteArray value(MHD_Connection *connection, MHD_ValueKind kind, const char *key)
{
    return QByteArray(MHD_lookup_connection_value(connection, kind, key));
}

QByteArray peerOf(MHD_Connection *connection)
{
    const auto *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    return SocketAddress(info->client_addr).toString().toLatin1();
}

Request requestOf(MHD_Connection *connection, const char *method, const char *path)
{
    Request request;
    request.method = method;
    request.path = path;
    request.sealedCommand = QString::fromUtf8(value(connection, MHD_GET_ARGUMENT_KIND, "dt"));
    // No reply carries a validator, so a condition on one never holds: the whole file is sent.
    if (!MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_IF_RANGE))
        request.range = value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_RANGE);
    return request;
}

/// A file whose sending is interrupted, by the thread that serves the connection.
struct InterruptedFile
{
    Reply::FilePiece piece;
    MHD_Connection *connection;

    ssize_t read(qint64 position, char *buffer, size_t capacity) const
    {
        const qint64 left = piece.interruption->bytes - position;
        if (left > 0) {
            const size_t wanted = std::min(capacity, static_cast<size_t>(left));
            const ssize_t count =
                ::pread(piece.file.get(), buffer, wanted, piece.offset + position);
            return count > 0 ? count : MHD_CONTENT_READER_END_WITH_ERROR;
        }
        if (!piece.interruption->isStall || hasPeerGone())
            return MHD_CONTENT_READER_END_WITH_ERROR;
        // The library asks again at once. What else this thread serves is held up as well, by a
        // moment each time, which does not matter to a host under trial.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return 0;
    }

    /// The library does not look, as it has something to send.
    bool hasPeerGone() const
    {
        const int socket =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
        char byte = 0;
        const ssize_t count = ::recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        return count == 0 || (count < 0 && errno == ECONNRESET);
    }
};

MHD_Response *responseFrom(Reply::FilePiece &piece, MHD_Connection *connection)
{
    const auto length = static_cast<uint64_t>(piece.length);
    if (!piece.interruption)
        return MHD_create_response_from_fd_at_offset64(length, piece.file.release(),
                                                       static_cast<uint64_t>(piece.offset));
    constexpr size_t portion = 32 * 1024;
    return MHD_create_response_from_callback(
        length, portion,
        [](void *file, uint64_t position, char *buffer, size_t capacity) {
            return static_cast<InterruptedFile *>(file)->read(static_cast<qint64>(position), buffer,
                                                              capacity);
        },
        new InterruptedFile{std::move(piece), connection},
        [](void *file) { delete static_cast<InterruptedFile *>(file); });
}

// The body is not copied: reply must outlive the sending.
MHD_Response *responseFrom(Reply &reply, MHD_Connection *connection)
{
    MHD_Response *response;
    if (reply.file) {
        response = responseFrom(*reply.file, connection);
    } else {
        response = MHD_create_response_from_buffer(static_cast<size_t>(reply.body.size()),
                                                   const_cast<char *>(reply.body.constData()),
                                                   MHD_RESPMEM_PERSISTENT);
    }
    for (const auto &[name, text] : reply.headers)
        MHD_add_response_header(response, name.constData(), text.constData());
    return response;
}

MHD_Result onRequest(void *server, MHD_Connection *connection, const char *path, const char *method,
                     const char *, const char *, size_t *bodySize, void **context)
{
    auto *exchange = static_cast<Exchange *>(*context);
    if (!exchange) {
        // The header has arrived. A reply now would cost the connection; it comes with the next
        // call.
        *context = new Exchange{peerOf(connection), method, {}};
        return MHD_YES;
    }
    if (*bodySize > 0) {
        *bodySize = 0; // Commands have no body; what comes as one is passed over.
        return MHD_YES;
    }
    auto *self = static_cast<HttpServer *>(server);
    exchange->reply = self->handler()(requestOf(connection, method, path));
    const std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)> response(
        responseFrom(*exchange->reply, connection), &MHD_destroy_response);
    return MHD_queue_response(connection, static_cast<unsigned>(exchange->reply->status),
                              response.get());
}

void onCompleted(void *, MHD_Connection *, void **context, MHD_RequestTerminationCode end)
{
    const std::unique_ptr<Exchange> exchange(static_cast<Exchange *>(*context));
    *context = nullptr;
    if (exchange && exchange->reply)
        ServiceLog::exchange(exchange->peer, exchange->method, *exchange->reply,
                             end == MHD_REQUEST_TERMINATED_COMPLETED_OK);
}

// Raises this process's limit of open files as far as it may. Half of it may become connections,
// since each may have a file open.
unsigned connectionLimit()
{
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
    ::getrlimit(RLIMIT_NOFILE, &files);
    return static_cast<unsigned>(std::clamp<rlim_t>(files.rlim_cur / 2, 64, 65'536) - 32);
}

FileDescriptor listenOn(const SocketAddress &address)
{
    FileDescriptor descriptor(::socket(address.family(), SOCK_STREAM, 0));
    ::fcntl(descriptor.get(), F_SETFD, FD_CLOEXEC);
    ::fcntl(descriptor.get(), F_SETFL, O_NONBLOCK);
    const int yes = 1;
    ::setsockopt(descriptor.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (::bind(descriptor.get(), address.data(), address.size()) != 0 ||
        ::listen(descriptor.get(), SOMAXCONN) != 0)
        return {};
    return descriptor;
}

} // namespace

HttpServer::~HttpServer()
{
    if (daemon_)
        MHD_stop_daemon(daemon_);
}

Result<void> HttpServer::start(const SocketAddress &address)
{
    FileDescriptor descriptor = listenOn(address);
    if (!descriptor.isOpen())
        return Failure{qt_error_string()};

    // At least two, so that reading a large installer for its digest does not stop everything.
    const unsigned threads = std::clamp(std::thread::hardware_concurrency(), 2U, 16U);
    // Not epoll, as the library uses it: when this program is stopped and continued in the middle
    // of a sendfile(), which then sends less than there is room for, the library waits for an event
    // that never comes, and the download stands still.
    unsigned flags = MHD_USE_POLL_INTERNAL_THREAD;
    if (address.family() == AF_INET6)
        flags |= MHD_USE_IPv6;
    daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &onRequest, this,
                               MHD_OPTION_LISTEN_SOCKET, descriptor.get(),
                               MHD_OPTION_THREAD_POOL_SIZE, threads, MHD_OPTION_CONNECTION_LIMIT,
                               connectionLimit(), MHD_OPTION_CONNECTION_TIMEOUT, idleSeconds,
                               MHD_OPTION_NOTIFY_COMPLETED, &onCompleted, nullptr, MHD_OPTION_END);
    if (!daemon_)
        return Failure{QStringLiteral("the HTTP library does not start")};
    descriptor.release(); // closed by the library when it stops
    return {};
}

SocketAddress HttpServer::address() const
{
    return SocketAddress::ofSocket(
        MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_LISTEN_FD)->listen_fd);
}
