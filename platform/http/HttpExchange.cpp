#include "HttpExchange.h"

#include "HttpErrors.h"
#include "HttpHandle.h"

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

std::atomic<std::chrono::milliseconds> currentIdleTimeout{std::chrono::seconds(60)};

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

/// curl's side of an exchange: gathers the pieces that curl hands out and passes them on.
class HttpExchange::Callbacks
{
public:
    Callbacks(HttpReceiver &receiver, HttpHandle &handle, const std::atomic<bool> &cancelled)
        : receiver_(receiver), handle_(handle), cancelled_(cancelled)
    {
    }

    void install()
    {
        curl_easy_setopt(handle_.easy, CURLOPT_HEADERFUNCTION, &Callbacks::header);
        curl_easy_setopt(handle_.easy, CURLOPT_HEADERDATA, this);
        curl_easy_setopt(handle_.easy, CURLOPT_WRITEFUNCTION, &Callbacks::write);
        curl_easy_setopt(handle_.easy, CURLOPT_WRITEDATA, this);
        // Alone tells of what is read and handed out to nobody.
        curl_easy_setopt(handle_.easy, CURLOPT_VERBOSE, 1L);
        curl_easy_setopt(handle_.easy, CURLOPT_DEBUGFUNCTION, &Callbacks::trace);
        curl_easy_setopt(handle_.easy, CURLOPT_DEBUGDATA, this);
    }

    HttpHandle &handle() const { return handle_; }
    /// What the receiver was told: nothing of a redirect that was followed.
    HttpResponse response() const { return reported_ ? response_ : HttpResponse(); }
    /// Whether the header of the last reply has come to its end, after those of the redirects.
    bool hasWholeHeader() const
    {
        long redirects = 0;
        curl_easy_getinfo(handle_.easy, CURLINFO_REDIRECT_COUNT, &redirects);
        return wholeHeaders_ > redirects;
    }
    /// Whether curl has ended at a redirect, since it leads where no exchange goes.
    bool isRedirectRefused(CURLcode result, bool mustBeSecure) const
    {
        long redirects = 0;
        const char *address = nullptr;
        curl_easy_getinfo(handle_.easy, CURLINFO_REDIRECT_COUNT, &redirects);
        curl_easy_getinfo(handle_.easy, CURLINFO_EFFECTIVE_URL, &address);
        const QString target = QString::fromUtf8(address);
        const bool isAllowed =
            isSecure(target) ||
            (!mustBeSecure && target.startsWith(QLatin1String("http:"), Qt::CaseInsensitive));
        return redirects > 0 && !hasWholeHeader() &&
               (result == CURLE_URL_MALFORMAT ||
                (result == CURLE_UNSUPPORTED_PROTOCOL && !isAllowed));
    }
    bool isAsked() const
    {
        long sent = 0;
        curl_easy_getinfo(handle_.easy, CURLINFO_REQUEST_SIZE, &sent);
        return sent > 0;
    }
    /// Whether a proxy was asked for a tunnel and answered anything but that there is one.
    bool isRefusedByProxy() const
    {
        long status = 0;
        curl_easy_getinfo(handle_.easy, CURLINFO_HTTP_CONNECTCODE, &status);
        return status >= 300;
    }
    /// Why the exchange was, or is to be, broken off on this side, if so.
    std::optional<NetworkError> brokenOff() const
    {
        const qint64 others = readBytes_ - bodyBytes_;
        if (others > mostOtherBytes + mostFramePerByte * bodyBytes_)
            return NetworkError::ReplyTooLarge;
        return brokenOff_;
    }
    bool hasPending() const { return !pending_.isEmpty(); }

    // Reports the reply's beginning, if it has not been, and what has been gathered of its body.
    void flush()
    {
        guarded([this] {
            if (hasWholeHeader() && !isEndlessRedirect())
                reportResponse();
            if (!pending_.isEmpty() && !brokenOff_ && !receiver_.didReceiveData(pending_))
                brokenOff_ = NetworkError::ReplyTooLarge;
        });
        pending_.resize(0);          // Keeps the memory for the next piece.
        lastActivity = Clock::now(); // The receiver's time is not the peer's.
    }

    // Reports what is left at the end.
    void finish(bool isRedirectRefused)
    {
        if (isRedirectRefused)
            guarded([this] { reportResponse(); });
        flush();
    }

    HeaderList headers; // As long as the exchange: curl does not copy them.
    Clock::time_point lastActivity = Clock::now();

private:
    // Whether the exchange is broken off in the body of a redirect, of which nothing is handed out.
    bool isEndlessRedirect() const
    {
        return brokenOff() && response_.status / 100 == 3 && bodyBytes_ == 0;
    }

    void reportResponse()
    {
        if (!std::exchange(reported_, true))
            receiver_.didReceiveResponse(response_);
    }

    // For what may run out of memory: nothing is thrown through the frames of curl.
    template <class Work>
    void guarded(Work &&work)
    {
        try {
            work();
        } catch (...) {
            brokenOff_ = NetworkError::Other;
        }
    }

    static size_t header(char *line, size_t, size_t length, void *self)
    {
        const QByteArrayView text(line, static_cast<qsizetype>(length));
        return static_cast<Callbacks *>(self)->takeHeaderLine(text) ? length
                                                                    : 0; // Makes curl fail.
    }

    static int trace(CURL *, curl_infotype type, char *, size_t length, void *self)
    {
        if (type == CURLINFO_DATA_IN)
            static_cast<Callbacks *>(self)->readBytes_ += static_cast<qint64>(length);
        return 0;
    }

    bool takeHeaderLine(QByteArrayView line)
    {
        headerBytes_ += line.size();
        if (headerBytes_ > mostOtherBytes) {
            flush(); // What stood before the trailers has come.
            brokenOff_ = NetworkError::ReplyTooLarge;
            return false;
        }
        if (line == "\r\n" || line == "\n")
            headersComplete();
        return true;
    }

    void headersComplete()
    {
        long status = 0;
        curl_off_t length = -1;
        curl_easy_getinfo(handle_.easy, CURLINFO_RESPONSE_CODE, &status);
        curl_easy_getinfo(handle_.easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        if (status < 200)
            return; // An interim reply only announces the real one.
        ++wholeHeaders_;
        response_ = {static_cast<int>(status), length};
    }

    static size_t write(char *bytes, size_t, size_t length, void *self)
    {
        return static_cast<Callbacks *>(self)->gather(bytes, static_cast<qsizetype>(length))
                   ? length
                   : 0;
    }

    bool gather(const char *bytes, qsizetype length)
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

    HttpReceiver &receiver_;
    HttpHandle &handle_;
    const std::atomic<bool> &cancelled_;
    HttpResponse response_;
    long wholeHeaders_ = 0;
    qint64 headerBytes_ = 0;
    qint64 readBytes_ = 0; // Behind the headers, body or not.
    qint64 bodyBytes_ = 0;
    bool reported_ = false;
    std::optional<NetworkError> brokenOff_;
    QByteArray pending_;
};

HttpExchange::HttpExchange(HttpRequest request) : request_(std::move(request)) {}

std::optional<Error> HttpExchange::run(HttpReceiver &receiver)
{
    // curl would take what stands before the zero for the whole.
    if (request_.url.contains(QChar(QChar::Null)))
        return networkError(NetworkError::BadUrl);
    auto handle = HttpHandlePool::take();
    if (!handle->easy || !handle->multi)
        return networkError(NetworkError::Other);

    Callbacks callbacks(receiver, *handle, cancelled_);
    if (!prepare(callbacks))
        return networkError(NetworkError::Other);
    {
        const std::lock_guard lock(mutex_);
        running_ = handle.get();
    }
    curl_multi_add_handle(handle->multi, handle->easy);
    const std::optional<Error> error = drive(callbacks);
    callbacks.finish(error && error->code == static_cast<int>(NetworkError::RedirectRefused));
    handle->noteConnection(!error);
    curl_multi_remove_handle(handle->multi, handle->easy);
    {
        const std::lock_guard lock(mutex_);
        running_ = nullptr;
    }
    response_ = callbacks.response();
    HttpHandlePool::giveBack(std::move(handle));
    return error;
}

void HttpExchange::cancel()
{
    cancelled_ = true;
    const std::lock_guard lock(mutex_);
    if (running_)
        curl_multi_wakeup(running_->multi);
}

std::chrono::milliseconds HttpExchange::idleTimeout()
{
    return currentIdleTimeout;
}

void HttpExchange::setIdleTimeout(std::chrono::milliseconds timeout)
{
    currentIdleTimeout = timeout;
}

// False when curl cannot be held to the protocols that are allowed.
bool HttpExchange::prepare(Callbacks &callbacks)
{
    CURL *easy = callbacks.handle().easy;
    const QByteArray url = request_.url.toUtf8();
    callbacks.headers = headerList(request_.headers);
    callbacks.install();

    curl_easy_setopt(easy, CURLOPT_URL, url.constData());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, callbacks.headers.get());
    if (request_.method == HttpMethod::Head)
        curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    if (request_.method == HttpMethod::Post) {
        curl_easy_setopt(easy, CURLOPT_POST, 1L);
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, "");
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, 0L);
    }

    curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, mostRedirects);
    // The later versions of HTTP have no place for the Connection field that is sent.
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L); // Does not wait for a look-up of a host name.
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, readBuffer);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(idleTimeout().count()));

    // A reply that was asked for under protection is not fetched without it.
    const char *const further = isSecure(request_.url) ? "https" : "http,https";
    return curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https") == CURLE_OK &&
           curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, further) == CURLE_OK;
}

// Until curl is done with the exchange, or it is cancelled or has taken too long.
std::optional<Error> HttpExchange::drive(Callbacks &callbacks)
{
    CURLM *multi = callbacks.handle().multi;
    const auto begin = Clock::now();
    for (;;) {
        const bool isCancelled = cancelled_; // What has arrived by then still counts.
        int running = 0;
        curl_multi_perform(multi, &running);
        if (running == 0)
            return outcome(callbacks);
        if (const auto reason = callbacks.brokenOff())
            return networkError(*reason);
        if (isCancelled)
            return networkError(NetworkError::Cancelled);

        // While more is waiting to be read it is gathered first; an idle socket holds nothing back.
        const auto now = Clock::now();
        Clock::duration left = callbacks.lastActivity + idleTimeout() - now;
        if (request_.timeLimit) {
            const Clock::duration leftInAll = begin + *request_.timeLimit - now;
            if (leftInAll <= Clock::duration::zero())
                return networkError(NetworkError::TimedOut);
            left = std::min(left, leftInAll);
        }
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(left).count() + 1;
        int active = 0;
        curl_multi_poll(multi, nullptr, 0,
                        callbacks.hasPending() ? 0 : static_cast<int>(std::max<qint64>(wait, 0)),
                        &active);
        if (active > 0)
            callbacks.lastActivity = Clock::now();
        else if (callbacks.hasPending())
            callbacks.flush();
        else if (Clock::now() - callbacks.lastActivity >= idleTimeout())
            return networkError(NetworkError::TimedOut);
    }
}

std::optional<Error> HttpExchange::outcome(Callbacks &callbacks) const
{
    callbacks.flush();
    int left = 0;
    const CURLMsg *message = curl_multi_info_read(callbacks.handle().multi, &left);
    const CURLcode result = message ? message->data.result : CURLE_FAILED_INIT;
    if (const auto reason = callbacks.brokenOff())
        return networkError(*reason);
    // To curl, a connection that ends within the header has brought an empty reply.
    if (result == CURLE_OK && !callbacks.hasWholeHeader())
        return networkError(NetworkError::ConnectionLost);
    if (result == CURLE_OK)
        return std::nullopt;
    if (!cancelled_ && callbacks.isRedirectRefused(result, isSecure(request_.url)))
        return networkError(NetworkError::RedirectRefused);
    // curl takes what does not begin like HTTP for a version of it that is not allowed.
    if (result == CURLE_UNSUPPORTED_PROTOCOL && callbacks.isAsked() && !callbacks.hasWholeHeader())
        return networkError(NetworkError::BadReply);
    if (!cancelled_ && callbacks.isRefusedByProxy())
        return networkError(NetworkError::ProxyRefused);
    return cancelled_ ? networkError(NetworkError::Cancelled) : errorFromCurl(result);
}

} // namespace ZVPlatform
