#include "UpdateLogicFunc.h"

#include "../platform/KnownErrors.h"
#include "../platform/files/Files.h"
#include "../platform/settings/Json.h"
#include "../platform/settings/SystemLog.h"
#include "../platform/threads/Guarded.h"
#include "../platform/threads/RunLoop.h"
#include "../transport/HttpFunctionPost.h"

#include <chrono>

using namespace ZVPlatform;
using Kind = UpdateFailure::Kind;
using Step = UpdateFailure::Step;

namespace {

constexpr std::chrono::milliseconds waitStep(500);

QString baseURL()
{
#ifdef ZVUPDATE_OVERRIDE_FILE
    // Developers point the system at another service with this file. What it holds is used as it
    // stands, a line end included.
    if (const auto override =
            Files::readText(Files::expandTilde(QStringLiteral("~/Documents/ConsoleZVUpdate.mac"))))
        return *override;
#endif
    return QStringLiteral(ZVUPDATE_SERVICE_URL);
}

// Arguments go into a command as they are: sealed, they need no escaping.
QString checkCommand(const QString &productID, const QString &productVersion)
{
    return QStringLiteral("cmd=checkupd&id=") + productID + QStringLiteral("&ver=") +
           productVersion;
}

QString downloadCommand(const QString &token, const QString &fileName)
{
    return QStringLiteral("cmd=download&tk=") + token + QStringLiteral("&fn=") + fileName;
}

Kind kindOf(const Error &error, int httpStatus)
{
    if (error.domain == QLatin1String(networkErrorDomain)) {
        switch (static_cast<NetworkError>(error.code)) {
        case NetworkError::Cancelled:
            return Kind::Stopped;
        case NetworkError::ProxyRefused:
            return Kind::ProxyRefused;
        case NetworkError::CertificateRefused:
            return Kind::CertificateRefused;
        case NetworkError::ConnectionLost:
            return Kind::BrokenOff;
        case NetworkError::TooManyRedirects:
        case NetworkError::RedirectRefused:
        case NetworkError::BadReply:
        case NetworkError::ReplyTooLarge:
            return Kind::NotAService;
        default:
            return httpStatus == 0 ? Kind::ServiceUnreachable : Kind::BrokenOff;
        }
    }
    if (error.domain != QLatin1String(fileErrorDomain))
        return error.code == 407 ? Kind::ProxyRefused : Kind::HttpStatus;
    switch (static_cast<FileError>(error.code)) {
    case FileError::NoRoom:
        return Kind::DiskFull;
    case FileError::NotWritable:
        return Kind::DirectoryNotWritable;
    case FileError::WrongDigest:
        return Kind::WrongDigest;
    case FileError::InUse:
    case FileError::IsDirectory:
        break;
    }
    return Kind::BrokenOff;
}

UpdateFailure failureOf(Step step, const HttpResponse &reply, Kind kind, const QString &sentence)
{
    return {kind, step, sentence, {}, reply.status, reply.contentType, reply.finalUrl};
}

UpdateFailure failureOf(Step step, const HttpResponse &reply, const Error &error)
{
    QString sentence = error.localizedDescription;
    if (sentence.isEmpty())
        sentence = QStringLiteral("The server answered with HTTP status %1.").arg(error.code);
    UpdateFailure failure = failureOf(step, reply, kindOf(error, reply.status), sentence);
    failure.error = error;
    return failure;
}

// Why a posted command was not answered as a service does, whatever status that comes with.
std::optional<UpdateFailure> failureOfPost(Step step, const HttpFunctionPost &transport,
                                           const std::optional<QString> &text)
{
    const HttpResponse reply = transport.lastResponse();
    if (const auto error = transport.failure())
        return failureOf(step, reply, *error);
    if (jsonObject(text).contains(u"ok"))
        return std::nullopt;
    if (!reply.isSuccess())
        return failureOf(step, reply, httpError(reply.status));
    return failureOf(step, reply, Kind::NotAService,
                     QStringLiteral("The reply is not that of an update service."));
}

} // namespace

struct UpdateLogicFunc::Private
{
    Guarded<std::shared_ptr<HttpFunctionPost>> mDownload_;
    Guarded<QString> mBaseURL_{baseURL()};
    Guarded<DelegateRef<UpdateLogicFuncDelegate>> delegate_;
    Guarded<std::optional<UpdateFailure>> failure_; // Of the latest command.
};

UpdateLogicFunc::UpdateLogicFunc() : d_(std::make_unique<Private>()) {}

UpdateLogicFunc::~UpdateLogicFunc()
{
    // Asked again and again: a download that has not begun its transfer yet cannot be stopped, and
    // must not hold up its host for its whole length.
    const auto stopped = [this] {
        doStopDownload();
        return doCheckDownloadStop();
    };
    // Within a call from one of its downloads nothing ends that has to call, too.
    while (!stopped() && !isCalledHere())
        runCurrentRunLoop(waitStep, stopped);
    retire();
    releaseDownload();
}

std::shared_ptr<CheckUpdateResponse> UpdateLogicFunc::doCheckUpdate(const QString &productID,
                                                                    const QString &productVersion)
{
    const auto transport = HttpFunctionPost::getPost(mBaseURL(), nullptr);
    const auto reply = transport->DoPost(checkCommand(productID, productVersion), std::nullopt);
    d_->failure_.set(failureOfPost(Step::Check, *transport, reply));
    return CheckUpdateResponse::getFromJson(reply);
}

std::shared_ptr<BaseResponse> UpdateLogicFunc::doGetToken()
{
    const auto transport = HttpFunctionPost::getPost(mBaseURL(), nullptr);
    const auto reply = transport->DoPost(QStringLiteral("cmd=gettoken"), std::nullopt);
    auto record = std::make_shared<BaseResponse>(reply);
    auto failure = failureOfPost(Step::Token, *transport, reply);
    if (!failure && !record->ok())
        failure = failureOf(Step::Token, transport->lastResponse(), Kind::NoToken,
                            QStringLiteral("The service hands out no download token."));
    d_->failure_.set(failure);
    return record;
}

uint64_t UpdateLogicFunc::doGetFileSize(const QString &token, const QString &fileName)
{
    const auto transport = HttpFunctionPost::getPost(mBaseURL(), nullptr);
    const uint64_t size = transport->getFileSize(downloadCommand(token, fileName));
    const HttpResponse reply = transport->lastResponse();
    auto error = transport->failure();
    if (!error && !reply.isSuccess())
        error = httpError(reply.status);
    d_->failure_.set(error ? std::optional(failureOf(Step::Size, reply, *error)) : std::nullopt);
    return size;
}

int64_t UpdateLogicFunc::doStartDownload(const QString &token, const QString &fileName,
                                         const QString &localPath)
{
    const auto transport = HttpFunctionPost::getPost(mBaseURL(), this);
    d_->mDownload_.set(transport);
    transport->DoDownloadAsync(downloadCommand(token, fileName), localPath);
    return 1;
}

bool UpdateLogicFunc::doCheckDownloadStop() const
{
    const auto download = mDownload();
    return !download || download->isThreadStop();
}

int64_t UpdateLogicFunc::doStopDownload()
{
    if (const auto download = mDownload())
        download->threadStop();
    return 1;
}

bool UpdateLogicFunc::isStopRequestedHere()
{
    return HttpFunctionPost::isStopRequestedHere();
}

std::optional<UpdateFailure> UpdateLogicFunc::lastFailure() const
{
    const auto download = mDownload();
    if (!download)
        return d_->failure_.get();
    const auto error = download->failure();
    return error ? std::optional(failureOf(Step::Download, download->lastResponse(), *error))
                 : std::nullopt;
}

UpdateDownloadProgress UpdateLogicFunc::doGetDownloadProgress() const
{
    UpdateDownloadProgress progress;
    if (const auto download = mDownload()) {
        if (const auto failure = lastFailure())
            progress.failure = failure->sentence;
        progress.received = download->downloadedBytes();
        progress.resumedAt = download->resumedAt();
        if (const int64_t expected = download->expectedBytes(); expected >= 0)
            progress.total = static_cast<uint64_t>(expected);
    }
    return progress;
}

void UpdateLogicFunc::releaseDownload()
{
    d_->mDownload_.set(nullptr);
}

void UpdateLogicFunc::waitOne()
{
    do {
        runCurrentRunLoop(waitStep, [this] { return doCheckDownloadStop(); });
    } while (!doCheckDownloadStop());
}

std::shared_ptr<HttpFunctionPost> UpdateLogicFunc::mDownload() const
{
    return d_->mDownload_.get();
}

QString UpdateLogicFunc::mBaseURL() const
{
    return d_->mBaseURL_.get();
}

void UpdateLogicFunc::setMDownload(const std::shared_ptr<HttpFunctionPost> &d)
{
    d_->mDownload_.set(d);
}

void UpdateLogicFunc::setMBaseURL(const QString &url)
{
    d_->mBaseURL_.set(url);
}

UpdateLogicFuncDelegate *UpdateLogicFunc::delegate() const
{
    return d_->delegate_.get().get();
}

void UpdateLogicFunc::setDelegate(UpdateLogicFuncDelegate *delegate)
{
    d_->delegate_.set(DelegateRef(delegate));
}

void UpdateLogicFunc::downloadFinishWithFilePath(const QString &path)
{
    d_->delegate_.get().call(
        [&](UpdateLogicFuncDelegate &delegate) { delegate.downloadFinishWithFilePath(path); });
}

void UpdateLogicFunc::downloadFinishWithError(const Error &error)
{
    systemLog(QStringLiteral("download Finish Error: ") + error.debugDescription());
}
