#include "UpdateLogicFunc.h"

#include "../platform/KnownErrors.h"
#include "../platform/files/Files.h"
#include "../platform/settings/Json.h"
#include "../platform/settings/SystemLog.h"
#include "../platform/threads/Guarded.h"
#include "../platform/threads/RunLoop.h"
#include "../transport/HttpFunctionPost.h"
#include "DownloadRate.h"

#include <algorithm>
#include <atomic>
#include <chrono>

using namespace ZVPlatform;
using Kind = UpdateOutcome::Kind;

namespace {

constexpr std::chrono::milliseconds waitStep(500);

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
    case FileError::TooLong:
        return Kind::WrongSize;
    case FileError::InUse:
    case FileError::IsDirectory:
        break;
    }
    return Kind::BrokenOff;
}

UpdateOutcome outcomeOf(const HttpResponse &reply, Kind kind)
{
    UpdateOutcome outcome(kind);
    outcome.httpStatus = reply.status;
    outcome.contentType = reply.contentType;
    outcome.finalUrl = reply.finalUrl;
    return outcome;
}

UpdateOutcome outcomeOf(const HttpResponse &reply, const Error &error)
{
    UpdateOutcome outcome = outcomeOf(reply, kindOf(error, reply.status));
    if (!error.localizedDescription.isEmpty())
        outcome.message = error.localizedDescription;
    else if (outcome.kind == Kind::HttpStatus)
        outcome.message =
            QStringLiteral("The server answered with HTTP status %1.").arg(error.code);
    outcome.error = error;
    return outcome;
}

std::optional<UpdateOutcome> failureOf(const HttpFunctionPost &transport)
{
    const auto error = transport.failure();
    return error ? std::optional(outcomeOf(transport.lastResponse(), *error)) : std::nullopt;
}

// A reply that is no service's. Networks that want their users to log in first answer with a page
// in the place of whoever was asked, or with a status of its own.
UpdateOutcome notAService(const HttpResponse &reply)
{
    UpdateOutcome outcome = outcomeOf(reply, Kind::NotAService);
    if (reply.status == UpdateOutcome::loginRequired)
        outcome.message = QStringLiteral("The network wants you to log in first.");
    else if (outcome.mayBeLoginPage())
        outcome.message = QStringLiteral("A web page has come in the place of the update service's "
                                         "reply; the network may want you to log in first.");
    return outcome;
}

// Why a posted command was not answered as a service does, whatever status that comes with.
std::optional<UpdateOutcome> failureOfPost(const HttpFunctionPost &transport,
                                           const std::optional<QString> &text)
{
    const HttpResponse reply = transport.lastResponse();
    if (const auto failure = failureOf(transport))
        return failure;
    if (jsonObject(text).contains(u"ok"))
        return std::nullopt;
    if (!reply.isSuccess() && reply.status != UpdateOutcome::loginRequired)
        return outcomeOf(reply, httpError(reply.status));
    return notAService(reply);
}

} // namespace

struct UpdateLogicFunc::Private
{
    Guarded<std::shared_ptr<HttpFunctionPost>> mDownload_;
    Guarded<QString> mBaseURL_{overridingBaseURL().value_or(QStringLiteral(ZVUPDATE_SERVICE_URL))};
    Guarded<DelegateRef<UpdateLogicFuncDelegate>> delegate_;
    Guarded<std::optional<UpdateOutcome>> failure_; // Of the latest command.
    Guarded<std::shared_ptr<HttpFunctionPost>> command_;
    std::atomic<bool> isCancelled_ = false;
    DownloadRate rate_;

    // A transport for one command, which a cancellation finds, whenever that comes.
    std::shared_ptr<HttpFunctionPost> commandTransport()
    {
        const auto transport = HttpFunctionPost::getPost(mBaseURL_.get(), nullptr);
        command_.set(transport);
        if (isCancelled_)
            transport->cancel();
        return transport;
    }
};

QString UpdateLogicFunc::overrideFilePath()
{
    return Files::expandTilde(QStringLiteral("~/Documents/ConsoleZVUpdate.mac"));
}

std::optional<QString> UpdateLogicFunc::overridingBaseURL()
{
#ifdef ZVUPDATE_OVERRIDE_FILE
    return Files::readText(overrideFilePath());
#else
    return std::nullopt;
#endif
}

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
    const auto transport = d_->commandTransport();
    const auto reply = transport->DoPost(checkCommand(productID, productVersion), std::nullopt);
    d_->failure_.set(failureOfPost(*transport, reply));
    return CheckUpdateResponse::getFromJson(reply);
}

std::shared_ptr<BaseResponse> UpdateLogicFunc::doGetToken()
{
    const auto transport = d_->commandTransport();
    const auto reply = transport->DoPost(QStringLiteral("cmd=gettoken"), std::nullopt);
    auto record = std::make_shared<BaseResponse>(reply);
    auto failure = failureOfPost(*transport, reply);
    if (!failure && !record->ok())
        failure = outcomeOf(transport->lastResponse(), Kind::NoToken);
    d_->failure_.set(failure);
    return record;
}

uint64_t UpdateLogicFunc::doGetFileSize(const QString &token, const QString &fileName)
{
    const auto transport = d_->commandTransport();
    const uint64_t size = transport->getFileSize(downloadCommand(token, fileName));
    const HttpResponse reply = transport->lastResponse();
    auto failure = failureOf(*transport);
    if (!failure && !reply.isSuccess())
        failure = outcomeOf(reply, httpError(reply.status));
    d_->failure_.set(failure);
    return size;
}

int64_t UpdateLogicFunc::doStartDownload(const QString &token, const QString &fileName,
                                         const QString &localPath, WhenUnwritable whenUnwritable,
                                         std::optional<uint64_t> mostBytes)
{
    const auto transport = HttpFunctionPost::getPost(mBaseURL(), this);
    transport->setStopsWhenUnwritable(whenUnwritable == Stop);
    if (mostBytes)
        transport->setMostBytes(*mostBytes);
    d_->mDownload_.set(transport);
    if (d_->isCancelled_)
        transport->cancel();
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

void UpdateLogicFunc::doCancel()
{
    d_->isCancelled_ = true;
    for (const auto &transport : {d_->command_.get(), mDownload()}) {
        if (transport)
            transport->cancel();
    }
}

bool UpdateLogicFunc::isCancelled() const
{
    return d_->isCancelled_;
}

bool UpdateLogicFunc::isStopRequestedHere()
{
    return HttpFunctionPost::isStopRequestedHere();
}

std::optional<UpdateOutcome> UpdateLogicFunc::lastFailure() const
{
    const auto download = mDownload();
    return download ? failureOf(*download) : d_->failure_.get();
}

UpdateDownloadProgress UpdateLogicFunc::doGetDownloadProgress() const
{
    UpdateDownloadProgress progress;
    if (const auto download = mDownload()) {
        if (const auto failure = lastFailure())
            progress.failure = failure->message;
        progress.received = download->downloadedBytes();
        progress.resumedAt = download->resumedAt();
        if (const int64_t expected = download->expectedBytes(); expected >= 0)
            progress.total = static_cast<uint64_t>(expected);
        // What was here before has not come of late.
        progress.bytesPerSecond = d_->rate_.perSecond(
            progress.received - std::min(progress.received, progress.resumedAt));
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

void UpdateLogicFunc::downloadEnded(const HttpFunctionPost &transport)
{
    if (const auto failure = failureOf(transport))
        d_->delegate_.get().call(
            [&](UpdateLogicFuncDelegate &delegate) { delegate.downloadFailed(*failure); });
}
