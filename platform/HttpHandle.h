#pragma once

#include <curl/curl.h>

#include <memory>

namespace ZVPlatform {

/// A curl handle together with the one that drives it and keeps its connections. Used by one thread
/// at a time; only curl_multi_wakeup() may be called by others.
struct HttpHandle
{
    HttpHandle();
    ~HttpHandle();

    HttpHandle(const HttpHandle &) = delete;
    HttpHandle &operator=(const HttpHandle &) = delete;

    CURL *easy;
    CURLM *multi;
};

/// The idle handles of the process, so that an exchange finds the connection that the one before it
/// has left open, whichever thread that ran on. Any thread.
class HttpHandlePool
{
public:
    /// The handle that was given back last, or a new one.
    static std::unique_ptr<HttpHandle> take();
    static void giveBack(std::unique_ptr<HttpHandle> handle);
};

} // namespace ZVPlatform
