#pragma once

#include <curl/curl.h>

#include <memory>

namespace ZVPlatform {

/// A curl handle together with the one that drives it and keeps its connection. Used by one thread
/// at a time; only curl_multi_wakeup() may be called by others.
struct HttpHandle
{
    HttpHandle();
    ~HttpHandle();

    HttpHandle(const HttpHandle &) = delete;
    HttpHandle &operator=(const HttpHandle &) = delete;

    /// Notes the connection of an exchange that is over, if it is left open for the next one.
    void noteConnection(bool isKept);

    /// Whether something has arrived on the kept connection that nobody has asked for: its end, or
    /// what curl would take for the reply to the next request.
    bool hasUnaskedInput() const;

    CURL *easy;
    CURLM *multi;

private:
    curl_socket_t kept_ = CURL_SOCKET_BAD;
};

/// The idle handles of the process, so that an exchange finds the connection that the one before it
/// has left open, whichever thread that ran on. Any thread.
class HttpHandlePool
{
public:
    /// The handle that was given back last and has a quiet connection, or a new one.
    static std::unique_ptr<HttpHandle> take();
    static void giveBack(std::unique_ptr<HttpHandle> handle);
};

} // namespace ZVPlatform
