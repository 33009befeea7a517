#pragma once

#include "../Error.h"
#include "../Mutex.h"
#include "../Result.h"
#include "HttpRequest.h"

#include <QByteArray>

#include <atomic>

namespace ZVPlatform {

struct HttpHandle;

/// How a reply begins. Without a status no reply has arrived.
struct HttpResponse
{
    int status = 0;
    /// The announced length of the body in bytes; -1 when the reply does not say.
    qint64 expectedContentLength = -1;
    /// What kind of body is announced; empty when the reply does not say.
    QString contentType = {};
    /// The address that it comes from, after the redirects that were followed.
    QString finalUrl = {};

    bool isSuccess() const { return status >= 200 && status <= 299; }
};

/// Takes what an exchange brings, call after call on one thread. A slow receiver slows the peer
/// down: nothing is read from the network while a call is running.
class HttpReceiver
{
public:
    virtual ~HttpReceiver() = default;

    /// The reply has begun. Called once at the most, before its first byte; also for a redirect
    /// that was refused, but not for one that was followed.
    virtual void didReceiveResponse(const HttpResponse &response) = 0;

    /// The next bytes of the body, in order: what has arrived by now, up to 256 KiB. A failure
    /// breaks the exchange off with that error; so does an exception, with NetworkError::Other.
    virtual Result<void, Error> didReceiveData(const QByteArray &bytes) = 0;

    /// The last call: the reply has arrived whole, whatever its status, or why it has not.
    virtual void didFinish(const Result<void, Error> &result) = 0;
};

/// One HTTP exchange on the calling thread, by the rules that hold for all of them: http and https
/// only, redirects included; a few redirects are followed; proxies come from the environment;
/// certificates are verified; idleness ends it, and so do more than 256 KiB of what is not body:
/// header lines, those of interim replies, redirects and trailers included. Connections are kept
/// for the next exchange.
class HttpExchange
{
public:
    explicit HttpExchange(HttpRequest request);

    HttpExchange(const HttpExchange &) = delete;
    HttpExchange &operator=(const HttpExchange &) = delete;

    /// Runs the exchange to its end, and tells the receiver. To be called once.
    void run(HttpReceiver &receiver);

    /// Ends the exchange at once with NetworkError::Cancelled, also when it has yet to be run.
    /// Any thread.
    void cancel();

private:
    class Conversation;

    Result<void, Error> converse(HttpReceiver &receiver);
    void setRunning(HttpHandle *handle);

    const HttpRequest request_;

    std::atomic<bool> cancelled_ = false;
    Mutex mutex_;
    HttpHandle *running_ ZVUPDATE_GUARDED_BY(mutex_) = nullptr;
};

} // namespace ZVPlatform
