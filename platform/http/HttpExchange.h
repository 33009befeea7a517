#pragma once

#include "../Error.h"
#include "HttpRequest.h"

#include <QByteArray>

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>

namespace ZVPlatform {

struct HttpHandle;

/// How a reply begins. Without a status no reply has arrived.
struct HttpResponse
{
    int status = 0;
    /// The announced length of the body in bytes; -1 when the reply does not say.
    qint64 expectedContentLength = -1;
};

/// Takes what an exchange brings, on the thread that runs it. A slow receiver slows the peer down:
/// nothing is read from the network while a call is running.
class HttpReceiver
{
public:
    virtual ~HttpReceiver() = default;

    /// The reply has begun. Called once at the most, before its first byte.
    virtual void didReceiveResponse(const HttpResponse &response) = 0;

    /// The next bytes of the body, in order: what has arrived by now, up to 256 KiB. Answering
    /// false breaks the exchange off with NetworkError::ReplyTooLarge; so does an exception, with
    /// NetworkError::Other.
    virtual bool didReceiveData(const QByteArray &bytes) = 0;
};

/// One HTTP exchange on the calling thread, by the rules that hold for all of them: http and https
/// only, redirects included; a few redirects are followed; proxies come from the environment;
/// certificates are verified; 60 seconds of idleness end it, and so do more than 256 KiB of what is
/// not body: header lines, those of interim replies, redirects and trailers included. Connections
/// are kept for the next exchange.
class HttpExchange
{
public:
    explicit HttpExchange(HttpRequest request);

    HttpExchange(const HttpExchange &) = delete;
    HttpExchange &operator=(const HttpExchange &) = delete;

    /// Runs the exchange to its end. Returns nothing when the reply arrived whole, whatever its
    /// status, else what went wrong. To be called once.
    std::optional<Error> run(HttpReceiver &receiver);

    /// Makes run() return with NetworkError::Cancelled at once, also when it has yet to be called.
    /// Any thread.
    void cancel();

    /// How the reply began; a redirect that was refused counts, one that was followed does not.
    /// After run().
    const HttpResponse &response() const { return response_; }

    /// The time without any sign of the peer after which an exchange fails.
    static std::chrono::milliseconds idleTimeout();
    static void setIdleTimeout(std::chrono::milliseconds timeout);

private:
    class Callbacks;

    bool prepare(Callbacks &callbacks);
    std::optional<Error> drive(Callbacks &callbacks);
    std::optional<Error> outcome(Callbacks &callbacks) const;

    const HttpRequest request_;
    HttpResponse response_; // run()'s thread

    std::atomic<bool> cancelled_ = false;
    std::mutex mutex_;
    HttpHandle *running_ = nullptr; // Guarded by mutex_.
};

} // namespace ZVPlatform
