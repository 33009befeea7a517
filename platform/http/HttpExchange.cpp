#include "HttpExchange.h"

#include "../KnownErrors.h"
#include "HttpErrors.h"
#include "HttpHandle.h"

#include <QScopeGuard>

#include <algorithm>
#include <memory>
#include <utility>

namespace ZVPlatform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr qsizetype largestPiece = 256 * 1024; // bytes handed to a receiver at once
// What curl reads at once: small enough to be in the processor's cache while it is gathered.
constexpr long readBuffer = 64 * 1024;
constexpr long mostRedirects = 10;
// What may come besides a body in all of an exchange: headers, those of redirects with their
// bodies, trailers, and what frames chunks, which may be small.
constexpr qint64 mostOtherBytes = 256 * 1024;
constexpr qint64 mostFramePerByte = 16;

struct FreeHeaders
{
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeHeaders>;

bool isSecure(const QString &url)
{
    return url.startsWith(QLatin1String("https:"), Qt::CaseInsensitive);
}

HeaderList headerList(const std::vector<HttpHeader> &headers)
{
    HeaderList list;
    for (const HttpHeader &header : headers) {
        const QByteArray line = header.name + ": " + header.value;
        if (curl_slist *longer = curl_slist_append(list.get(), line.constData())) {
            static_cast<void>(list.release());
            list.reset(longer);
        }
    }
    return list;
}

} // namespace

/// The exchange while it lasts, as curl sees it: gathers the pieces that curl hands out and passes
/// them on.
class HttpExchange::Conversation
{
public:
    Conversation(const HttpRequest &request, HttpReceiver &receiver, HttpHandle &handle,
                 const std::atomic<bool> &cancelled)
        : request_(request),
          receiver_(receiver),
          easy_(handle.easy),
          multi_(handle.multi),
          cancelled_(cancelled)
    {
    }

    /// False when curl cannot be held to the protocols that are allowed.
    bool prepare();

    /// Until curl is done with the exchange, or it is cancelled or has taken too long.
    Result<void, Error> drive();

private:
    Result<void, Error> ending();
    bool hasWholeHeader() const;
    bool isRedirectRefused(CURLcode result) const;
    bool isEndlessRedirect() const;
    std::optional<Error> brokenOff() const;
    void flush();
    void reportResponse();
    template <class Work>
    void guarded(Work &&work);

    template <class Value>
    Value info(CURLINFO what) const
    {
        Value value = {};
        curl_easy_getinfo(easy_, what, &value);
        return value;
    }

    // What curl calls, with bytes that are taken, or not, which makes it fail.
    static size_t header(char *line, size_t, size_t length, void *self);
    static size_t write(char *bytes, size_t, size_t length, void *self);
    static int trace(CURL *, curl_infotype type, char *, size_t length, void *self);
    bool takeHeaderLine(QByteArrayView line);
    bool gather(const char *bytes, qsizetype length);

    const HttpRequest &request_;
    HttpReceiver &receiver_;
    CURL *const easy_;
    CURLM *const multi_;
    const std::atomic<bool> &cancelled_;
    HeaderList headers_; // As long as the exchange: curl does not copy them.
    Clock::time_point lastActivity_ = Clock::now();
    HttpResponse response_;
    long wholeHeaders_ = 0;
    qint64 headerBytes_ = 0;
    qint64 readBytes_ = 0; // Behind the headers, body or not.
    qint64 bodyBytes_ = 0;
    bool reported_ = false;
    std::optional<Error> brokenOff_;
    QByteArray pending_;
};

HttpExchange::HttpExchange(HttpRequest request) : request_(std::move(request)) {}

void HttpExchange::run(HttpReceiver &receiver)
{
    receiver.didFinish(converse(receiver));
}

Result<void, Error> HttpExchange::converse(HttpReceiver &receiver)
{
    // curl would take what stands before the zero for the whole.
    if (request_.url.contains(QChar(QChar::Null)))
        return Failure{networkError(NetworkError::BadUrl)};
    auto handle = HttpHandlePool::take();
    if (!handle->easy || !handle->multi)
        return Failure{networkError(NetworkError::Other)};

    Conversation conversation(request_, receiver, *handle, cancelled_);
    if (!conversation.prepare())
        return Failure{networkError(NetworkError::Other)};
    setRunning(handle.get());
    curl_multi_add_handle(handle->multi, handle->easy);
    auto result = conversation.drive();
    handle->noteConnection(static_cast<bool>(result));
    curl_multi_remove_handle(handle->multi, handle->easy);
    setRunning(nullptr);
    HttpHandlePool::giveBack(std::move(handle));
    return result;
}

void HttpExchange::setRunning(HttpHandle *handle)
{
    const MutexLock lock(mutex_);
    running_ = handle;
}

void HttpExchange::cancel()
{
    cancelled_ = true;
    const MutexLock lock(mutex_);
    if (running_)
        curl_multi_wakeup(running_->multi);
}

bool HttpExchange::Conversation::prepare()
{
    headers_ = headerList(request_.headers);
    curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &Conversation::header);
    curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &Conversation::write);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
    // Alone tells of what is read and handed out to nobody.
    curl_easy_setopt(easy_, CURLOPT_VERBOSE, 1L);
    curl_easy_setopt(easy_, CURLOPT_DEBUGFUNCTION, &Conversation::trace);
    curl_easy_setopt(easy_, CURLOPT_DEBUGDATA, this);

    curl_easy_setopt(easy_, CURLOPT_URL, request_.url.toUtf8().constData());
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_.get());
    if (request_.method == HttpMethod::Head)
        curl_easy_setopt(easy_, CURLOPT_NOBODY, 1L);
    if (request_.method == HttpMethod::Post)
        curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, ""); // Makes it a POST, with an empty body.

    curl_easy_setopt(easy_, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy_, CURLOPT_MAXREDIRS, mostRedirects);
    // The later versions of HTTP have no place for the Connection field that is sent.
    curl_easy_setopt(easy_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_QUICK_EXIT, 1L); // Does not wait for a look-up of a host name.
    curl_easy_setopt(easy_, CURLOPT_BUFFERSIZE, readBuffer);
    curl_easy_setopt(easy_, CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(request_.idleTimeout.count()));

    // A reply that was asked for under protection is not fetched without it.
    const char *const further = isSecure(request_.url) ? "https" : "http,https";
    return curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https") == CURLE_OK &&
           curl_easy_setopt(easy_, CURLOPT_REDIR_PROTOCOLS_STR, further) == CURLE_OK;
}

Result<void, Error> HttpExchange::Conversation::drive()
{
    const auto flushed = qScopeGuard([this] { flush(); });
    const auto begin = Clock::now();
    for (;;) {
        const bool isCancelled = cancelled_; // What has arrived by then still counts.
        int running = 0;
        curl_multi_perform(multi_, &running);
        if (running == 0)
            return ending();
        if (const auto reason = brokenOff())
            return Failure{*reason};
        if (isCancelled)
            return Failure{networkError(NetworkError::Cancelled)};

        // While more is waiting to be read it is gathered first; an idle socket holds nothing back.
        const auto now = Clock::now();
        Clock::duration left = lastActivity_ + request_.idleTimeout - now;
        if (request_.timeLimit) {
            const Clock::duration leftInAll = begin + *request_.timeLimit - now;
            if (leftInAll <= Clock::duration::zero())
                return Failure{networkError(NetworkError::TimedOut)};
            left = std::min(left, leftInAll);
        }
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(left).count() + 1;
        int active = 0;
        curl_multi_poll(multi_, nullptr, 0,
                        pending_.isEmpty() ? static_cast<int>(std::max<qint64>(wait, 0)) : 0,
                        &active);
        if (active > 0)
            lastActivity_ = Clock::now();
        else if (!pending_.isEmpty())
            flush();
        else if (Clock::now() - lastActivity_ >= request_.idleTimeout)
            return Failure{networkError(NetworkError::TimedOut)};
    }
}

// What curl says of the exchange, in the system's words.
Result<void, Error> HttpExchange::Conversation::ending()
{
    flush();
    int left = 0;
    const CURLMsg *message = curl_multi_info_read(multi_, &left);
    const CURLcode result = message ? message->data.result : CURLE_FAILED_INIT;
    if (const auto reason = brokenOff())
        return Failure{*reason};
    // To curl, a connection that ends within the header has brought an empty reply.
    if (result == CURLE_OK && !hasWholeHeader())
        return Failure{networkError(NetworkError::ConnectionLost)};
    if (result == CURLE_OK)
        return {};
    if (!cancelled_ && isRedirectRefused(result)) {
        guarded([this] { reportResponse(); });
        return Failure{networkError(NetworkError::RedirectRefused)};
    }
    // curl takes what does not begin like HTTP for a version of it that is not allowed.
    const bool isAsked = info<long>(CURLINFO_REQUEST_SIZE) > 0;
    if (result == CURLE_UNSUPPORTED_PROTOCOL && isAsked && !hasWholeHeader())
        return Failure{networkError(NetworkError::BadReply)};
    // A proxy that is asked for a tunnel answers 2xx, or there is none.
    if (!cancelled_ && info<long>(CURLINFO_HTTP_CONNECTCODE) >= 300)
        return Failure{networkError(NetworkError::ProxyRefused)};
    return Failure{cancelled_ ? networkError(NetworkError::Cancelled) : errorFromCurl(result)};
}

// Whether the header of the last reply has come to its end, after those of the redirects.
bool HttpExchange::Conversation::hasWholeHeader() const
{
    return wholeHeaders_ > info<long>(CURLINFO_REDIRECT_COUNT);
}

// Whether curl has ended at a redirect, since it leads where no exchange goes.
bool HttpExchange::Conversation::isRedirectRefused(CURLcode result) const
{
    const QString target = QString::fromUtf8(info<const char *>(CURLINFO_EFFECTIVE_URL));
    const bool isAllowed =
        isSecure(target) ||
        (!isSecure(request_.url) && target.startsWith(QLatin1String("http:"), Qt::CaseInsensitive));
    return info<long>(CURLINFO_REDIRECT_COUNT) > 0 && !hasWholeHeader() &&
           (result == CURLE_URL_MALFORMAT || (result == CURLE_UNSUPPORTED_PROTOCOL && !isAllowed));
}

// Whether the exchange is broken off in the body of a redirect, of which nothing is handed out.
bool HttpExchange::Conversation::isEndlessRedirect() const
{
    return brokenOff() && response_.status / 100 == 3 && bodyBytes_ == 0;
}

// Why the exchange was, or is to be, broken off on this side, if so.
std::optional<Error> HttpExchange::Conversation::brokenOff() const
{
    const qint64 others = readBytes_ - bodyBytes_;
    if (others > mostOtherBytes + mostFramePerByte * bodyBytes_)
        return networkError(NetworkError::ReplyTooLarge);
    return brokenOff_;
}

// Reports the reply's beginning, if it has not been, and what has been gathered of its body.
void HttpExchange::Conversation::flush()
{
    guarded([this] {
        if (hasWholeHeader() && !isEndlessRedirect())
            reportResponse();
        if (pending_.isEmpty() || brokenOff_)
            return;
        if (const auto taken = receiver_.didReceiveData(pending_); !taken)
            brokenOff_ = taken.error();
    });
    pending_.resize(0);           // Keeps the memory for the next piece.
    lastActivity_ = Clock::now(); // The receiver's time is not the peer's.
}

void HttpExchange::Conversation::reportResponse()
{
    if (!std::exchange(reported_, true))
        receiver_.didReceiveResponse(response_);
}

// For what may run out of memory: nothing is thrown through the frames of curl.
template <class Work>
void HttpExchange::Conversation::guarded(Work &&work)
{
    try {
        work();
    } catch (...) {
        brokenOff_ = networkError(NetworkError::Other);
    }
}

size_t HttpExchange::Conversation::header(char *line, size_t, size_t length, void *self)
{
    const QByteArrayView text(line, static_cast<qsizetype>(length));
    return static_cast<Conversation *>(self)->takeHeaderLine(text) ? length : 0;
}

size_t HttpExchange::Conversation::write(char *bytes, size_t, size_t length, void *self)
{
    const auto size = static_cast<qsizetype>(length);
    return static_cast<Conversation *>(self)->gather(bytes, size) ? length : 0;
}

int HttpExchange::Conversation::trace(CURL *, curl_infotype type, char *, size_t length, void *self)
{
    if (type == CURLINFO_DATA_IN)
        static_cast<Conversation *>(self)->readBytes_ += static_cast<qint64>(length);
    return 0;
}

bool HttpExchange::Conversation::takeHeaderLine(QByteArrayView line)
{
    headerBytes_ += line.size();
    if (headerBytes_ > mostOtherBytes) {
        flush(); // What stood before the trailers has come.
        brokenOff_ = networkError(NetworkError::ReplyTooLarge);
        return false;
    }
    if (line != "\r\n" && line != "\n")
        return true;
    const auto status = static_cast<int>(info<long>(CURLINFO_RESPONSE_CODE));
    if (status >= 200) { // An interim reply only announces the real one.
        ++wholeHeaders_;
        response_ = {status,
                     info<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T),
                     {},
                     QString::fromUtf8(info<const char *>(CURLINFO_EFFECTIVE_URL))};
        // CURLINFO_CONTENT_TYPE may be that of a redirect.
        curl_header *type = nullptr;
        if (curl_easy_header(easy_, "Content-Type", 0, CURLH_HEADER, -1, &type) == CURLHE_OK)
            response_.contentType = QString::fromUtf8(type->value);
    }
    return true;
}

bool HttpExchange::Conversation::gather(const char *bytes, qsizetype length)
{
    if (pending_.size() + length > largestPiece)
        flush();
    if (brokenOff() || cancelled_)
        return false;
    bodyBytes_ += length;
    guarded([&] {
        if (pending_.isEmpty())
            pending_.reserve(largestPiece);
        pending_.append(bytes, length);
    });
    return !brokenOff_;
}

} // namespace ZVPlatform
