#pragma once

#include "../../platform/Result.h"
#include "HttpMessages.h"
#include "SocketAddress.h"

#include <functional>

struct MHD_Daemon;

/// Receives HTTP requests on a few threads of its own, has them answered by a function and logs
/// each exchange. Files that are not interrupted go from the disk to the socket without passing
/// through this program's memory.
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

    /// Listens on an address; port 0 lets the system choose.
    ZVPlatform::Result<void> start(const SocketAddress &address);

    /// Where the started server listens.
    SocketAddress address() const;

    /// For the HTTP library's callbacks.
    const Handler &handler() const { return handler_; }

private:
    const Handler handler_;
    MHD_Daemon *daemon_ = nullptr;
};
