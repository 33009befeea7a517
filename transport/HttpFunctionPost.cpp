#include "HttpFunctionPost.h"

#include "../platform/KnownErrors.h"
#include "../platform/files/Files.h"
#include "../platform/files/PartialFile.h"
#include "../platform/http/HttpReply.h"
#include "../platform/http/HttpTransfer.h"
#include "../platform/settings/SystemLog.h"
#include "../platform/settings/Text.h"
#include "../platform/threads/MainQueue.h"
#include "../platform/threads/SerialQueue.h"
#include "../service/HttpFunctionURLEncode.h"
#include "DownloadMode.h"

#include <QScopeGuard>

#include <chrono>
#include <limits>
#include <utility>

using namespace ZVPlatform;

double kZVAppKitVersionNumber = 1343.0;

namespace {

constexpr double firstVersionWithSessions = 1343.0;
constexpr std::chrono::minutes commandTimeLimit(5);
constexpr quint64 roomToLeave = 64 * 1024 * 1024; // bytes
constexpr qint64 longestErrorPage = 256 * 1024;   // bytes that are read and not kept

// Whose delegate the thread is just telling how its download ended.
thread_local HttpFunctionPost *reporting = nullptr;

std::vector<HttpHeader> downloadHeaders(uint64_t offset)
{
    std::vector<HttpHeader> headers;
    if (offset != 0)
        headers.push_back({"Range", "bytes=" + QByteArray::number(qulonglong(offset)) + "-"});
    // The service knows its clients by this browser's name on every platform.
    headers.push_back({"User-Agent", "Mozilla/5.0 (Windows NT 6.3; WOW64; rv:36.0) Gecko/20100101 "
                                     "Firefox/36.0"});
    headers.push_back({"Connection", "Keep-Alive"});
    return headers;
}

} // namespace

template <class Call>
void HttpFunctionPost::report(Call &&call)
{
    HttpFunctionPost *const outer = std::exchange(reporting, this);
    const auto restore = qScopeGuard([outer] { reporting = outer; });
    delegate_.get().call(call);
}

/// Puts what a transfer brings into the local file. It owns the transport for as long as the
/// transfer lasts, and its own end is the end of the download, however that came about.
class HttpFunctionPost::FileReceiver : public HttpReceiver
{
public:
    FileReceiver(std::shared_ptr<HttpFunctionPost> transport, PartialFile file,
                 HttpTransfer::Delivery delivery)
        : transport_(std::move(transport)),
          file_(std::move(file)),
          passesErrors_(delivery == HttpTransfer::Delivery::Queue)
    {
    }

    ~FileReceiver() override
    {
        if (!hasFinished_)
            transport_->fail(networkError(NetworkError::Cancelled));
        end();
    }

    FileReceiver(const FileReceiver &) = delete;
    FileReceiver &operator=(const FileReceiver &) = delete;

    void didReceiveResponse(const HttpResponse &response) override
    {
        transport_->lastResponse_.set(response);
        response_ = response;
        fits_ = response.expectedContentLength >= 0 &&
                static_cast<quint64>(response.expectedContentLength) <= Files::room(path());
        // What no file can be is not expected, whatever is announced.
        const auto resumedAt = static_cast<int64_t>(transport_->downloadedBytes_);
        const int64_t mostToCome = std::numeric_limits<int64_t>::max() - resumedAt;
        if (response_.isSuccess() && response.expectedContentLength >= 0 &&
            response.expectedContentLength <= mostToCome)
            transport_->expectedBytes_ = resumedAt + response.expectedContentLength;
    }

    Result<void, Error> didReceiveData(const QByteArray &bytes) override
    {
        if (!response_.isSuccess()) {
            unwanted_ += bytes.size();
            if (unwanted_ > longestErrorPage)
                return Failure{networkError(NetworkError::ReplyTooLarge)};
            return {};
        }
        if (isTooLong(bytes.size())) {
            Files::remove(path()); // To resume it would end the same way.
            return stop(fileError(FileError::TooLong));
        }
        // What is longer than announced is not let fill the disk.
        if (!fits_ && Files::room(path()) < roomToLeave + static_cast<quint64>(bytes.size()))
            return stop(fileError(FileError::NoRoom));
        const auto appended = file_.append(bytes);
        transport_->downloadedBytes_ += static_cast<uint64_t>(bytes.size());
        if (appended && file_.loss() && transport_->stopsWhenUnwritable_)
            return Failure{*file_.loss()};
        return appended;
    }

    void didFinish(const Result<void, Error> &result) override
    {
        hasFinished_ = true;
        if (file_.loss())
            transport_->fail(*file_.loss());
        if (response_.status != 0 && !response_.isSuccess())
            transport_->fail(httpError(response_.status));
        else if (!result)
            transport_->fail(result.error());

        if (result && response_.isSuccess())
            reportFile();
        else if (response_.isSuccess() && passesErrors_)
            reportError(result.error());
        else // A connection never says more than the status it got, even when that is a success.
            reportError(httpError(response_.status));
        if (!result && !passesErrors_ && result.error().domain == QLatin1String(fileErrorDomain))
            systemLog(result.error().localizedDescription);
        end();
    }

private:
    QString path() const { return transport_->mCancelDownloadTempFile().value_or(QString()); }

    bool isTooLong(qsizetype more) const
    {
        const uint64_t most = transport_->mostBytes_;
        const int64_t expected = transport_->expectedBytes_;
        return transport_->downloadedBytes_ + static_cast<uint64_t>(more) > most ||
               (expected >= 0 && static_cast<uint64_t>(expected) > most);
    }

    Failure<Error> stop(const Error &error)
    {
        if (!passesErrors_) // A connection that is stopped tells its delegate nothing.
            systemLog(error.localizedDescription);
        transport_->fail(error);
        transport_->threadStop();
        return {error};
    }

    // Whoever hears of it last may start another download.
    void end()
    {
        if (std::exchange(hasEnded_, true))
            return;
        transport_->report(
            [this](HttpFunctionPostDelegate &delegate) { delegate.downloadEnded(*transport_); });
        transport_->mThreadEnded_ = 1;
    }

    void reportFile()
    {
        transport_->report([this](HttpFunctionPostDelegate &delegate) {
            delegate.downloadFinishWithFilePath(path());
        });
    }

    void reportError(const Error &error)
    {
        transport_->report(
            [&](HttpFunctionPostDelegate &delegate) { delegate.downloadFinishWithError(error); });
    }

    const std::shared_ptr<HttpFunctionPost> transport_;
    PartialFile file_;
    const bool passesErrors_;
    HttpResponse response_;
    qint64 unwanted_ = 0; // Bytes of a reply that is no success.
    bool hasFinished_ = false;
    bool hasEnded_ = false;
    bool fits_ = false; // Whether the announced length does into the room there was.
};

std::shared_ptr<HttpFunctionPost> HttpFunctionPost::getPost(const QString &url,
                                                            HttpFunctionPostDelegate *delegate)
{
    return std::make_shared<HttpFunctionPost>(url, delegate);
}

HttpFunctionPost::HttpFunctionPost(const QString &url, HttpFunctionPostDelegate *delegate)
    : mUrl_(url), delegate_(DelegateRef(delegate))
{
}

HttpFunctionPost::~HttpFunctionPost()
{
    threadStop();
}

std::optional<QString> HttpFunctionPost::DoPost(const QString &params,
                                                const std::optional<QByteArray> & /*data*/)
{
    const QString sealed = HttpFunctionURLEncode::encode(params);
    if (sealed.isEmpty())
        return QString();

    HttpReply reply;
    const auto result = command({HttpMethod::Post,
                                 sealedUrl(sealed),
                                 {{"Connection", "Keep-Alive"},
                                  {"Content-Type", "application/x-www-form-urlencoded"},
                                  {"Content-Length", "0"}}},
                                reply);
    if (!result) {
        systemLog(QStringLiteral("connect error: ") + result.error().localizedDescription);
        return std::nullopt;
    }
    return textFromUtf8(reply.body);
}

uint64_t HttpFunctionPost::getFileSize(const QString &params)
{
    const QString sealed = HttpFunctionURLEncode::encode(params);
    if (sealed.isEmpty())
        return 0;

    HttpReply reply;
    return command({HttpMethod::Head, sealedUrl(sealed)}, reply)
               ? static_cast<uint64_t>(reply.response.expectedContentLength)
               : 0;
}

int64_t HttpFunctionPost::DoDownloadAsync(const QString &params, const QString &localFilePath)
{
    if (!mDownloadQueue_)
        mDownloadQueue_ =
            std::make_unique<SerialQueue>(QStringLiteral("Download_Queue_HttpFunction"));
    const QString url = sealedUrl(HttpFunctionURLEncode::encode(params));
    usesConnection_ = kZVAppKitVersionNumber < firstVersionWithSessions;
    const bool isQueued = mDownloadQueue_->async([self = shared_from_this(), url, localFilePath] {
        self->DownloadFile(url, localFilePath);
    });
    if (!isQueued)
        endWithoutThread(localFilePath);
    return 1;
}

void HttpFunctionPost::DownloadFile(const QString &url, const QString &localFilePath)
{
    if (mOpen_ != 0)
        return;
    mCancelDownloadTempFile_.set(localFilePath);
    PartialFile file(localFilePath);
    resumedAt_ = file.size();
    downloadedBytes_ = file.size();

    const HttpRequest request{HttpMethod::Get, url, downloadHeaders(file.size())};
    if (usesConnection_)
        startConnection(request, std::move(file));
    else
        startSession(request, std::move(file));
    mOpen_ = 1;
}

// As a download to which no reply came.
void HttpFunctionPost::endWithoutThread(const QString &localFilePath)
{
    if (mOpen_ != 0)
        return;
    mCancelDownloadTempFile_.set(localFilePath);
    mOpen_ = 1;
    FileReceiver(shared_from_this(), PartialFile(localFilePath), HttpTransfer::Delivery::Queue)
        .didFinish(Failure{networkError(NetworkError::Other)});
}

void HttpFunctionPost::startSession(const HttpRequest &request, PartialFile file)
{
    constexpr auto delivery = HttpTransfer::Delivery::Queue;
    const auto session = std::make_shared<SerialQueue>(QStringLiteral("URL_Session"));
    const auto task = std::make_shared<HttpTransfer>(
        request, std::make_shared<FileReceiver>(shared_from_this(), std::move(file), delivery),
        session, delivery);
    currentSession_.set(session);
    currentDownloadTask_.set(task);
    if (isCancelled_)
        threadStop();
    task->resume();
}

// The receiver goes with the connection, but is made here: should the main thread never get to make
// the connection, its end says that the download is over.
void HttpFunctionPost::startConnection(const HttpRequest &request, PartialFile file)
{
    const auto delivery = HttpTransfer::Delivery::MainThread;
    MainQueue::async(
        [this, request, delivery,
         receiver = std::make_shared<FileReceiver>(shared_from_this(), std::move(file), delivery)] {
            const auto connection = std::make_shared<HttpTransfer>(
                request, receiver, std::make_shared<SerialQueue>(QStringLiteral("URL_Connection")),
                delivery);
            currentConnection_.set(connection);
            if (isCancelled_)
                threadStop();
            else
                connection->resume();
        });
}

int64_t HttpFunctionPost::threadStop()
{
    // The flag comes first: cancelling waits for a call that the main thread is making, which may
    // be the verification of the file, and that ends when it sees the flag.
    if (const auto task = currentDownloadTask_.get()) {
        mThreadEndFlag_ = 1;
        task->cancel();
    }
    if (const auto connection = currentConnection_.get()) {
        mThreadEndFlag_ = 1;
        connection->cancel();
        mThreadEnded_ = 1;
    }
    return 0;
}

bool HttpFunctionPost::isStopRequestedHere()
{
    return reporting && reporting->mThreadEndFlag_ == 1;
}

void HttpFunctionPost::failHere(const Error &error)
{
    if (reporting)
        reporting->fail(error);
}

void HttpFunctionPost::fail(const Error &error)
{
    if (!failure())
        failure_.set(error);
}

// The flag is looked at when there is something to be cancelled, here as where transfers start, and
// set before that is looked for.
Result<void, Error> HttpFunctionPost::command(HttpRequest request, HttpReply &reply)
{
    request.timeLimit = commandTimeLimit;
    const auto exchange = std::make_shared<HttpExchange>(std::move(request));
    command_.set(exchange);
    if (isCancelled_)
        exchange->cancel();
    auto result = sendSynchronously(*exchange, reply);
    command_.set(nullptr);
    lastResponse_.set(reply.response);
    failure_.set(result ? std::nullopt : std::optional(result.error()));
    return result;
}

void HttpFunctionPost::cancel()
{
    isCancelled_ = true;
    if (const auto exchange = command_.get())
        exchange->cancel();
    threadStop();
}

bool HttpFunctionPost::isThreadStop() const
{
    return mOpen_ == 1 && mThreadEnded_ == 1;
}

void HttpFunctionPost::setDelegate(HttpFunctionPostDelegate *delegate)
{
    delegate_.set(DelegateRef(delegate));
}
