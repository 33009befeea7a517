#pragma once

#include "PausedConnections.h"
#include "Reply.h"
#include "Request.h"
#include "SocketAddress.h"

#include <functional>
#include <optional>

struct MHD_Daemon;

/// Receives HTTP requests on a few threads of its own, has them answered by a function and logs
/// each exchange. Files in good health go from the disk to the socket without passing through this
/// program's memory.
class HttpServer
{
public:
    /// Called on any of the server's threads, on several at once.
    using Handler = std::function<Reply(const Request &)>;

    explicit HttpServer(const Handler &handler) : handler_(handler) {}
    /// Breaks off what is being sent, and returns when the server's threads have ended.
    ~HttpServer();
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    /// Listens on an address; port 0 lets the system choose. Absent on success, else the reason for
    /// the failure.
    std::optional<QString> start(const SocketAddress &address);

    /// Where the started server listens.
    SocketAddress address() const;

    /// For the HTTP library's callbacks.
    const Handler &handler() const { return handler_; }
    PausedConnections &paused() { return paused_; }

private:
    const Handler handler_;
    PausedConnections paused_;
    MHD_Daemon *daemon_ = nullptr;
};
