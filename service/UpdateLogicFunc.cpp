#include "UpdateLogicFunc.h"

#include "../platform/files/Files.h"
#include "../platform/settings/SystemLog.h"
#include "../platform/threads/Guarded.h"
#include "../platform/threads/RunLoop.h"
#include "../transport/HttpFunctionPost.h"

#include <chrono>

using namespace ZVPlatform;

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

// In connection mode an HTTP status is all that is known of a failure, even of a broken transfer.
QString reason(const Error &error)
{
    if (!error.localizedDescription.isEmpty())
        return error.localizedDescription;
    if (error.code == 0)
        return QStringLiteral("The server did not answer.");
    if (error.code >= 200 && error.code <= 299)
        return QStringLiteral("The connection was lost before the reply was complete.");
    return QStringLiteral("The server answered with HTTP status %1.").arg(error.code);
}

} // namespace

struct UpdateLogicFunc::Private
{
    Guarded<std::shared_ptr<HttpFunctionPost>> mDownload_;
    Guarded<QString> mBaseURL_{overridingBaseURL().value_or(QStringLiteral(ZVUPDATE_SERVICE_URL))};
    Guarded<DelegateRef<UpdateLogicFuncDelegate>> delegate_;
    Guarded<std::optional<QString>> failure_;
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
    const auto transport = HttpFunctionPost::getPost(mBaseURL(), nullptr);
    return CheckUpdateResponse::getFromJson(
        transport->DoPost(checkCommand(productID, productVersion), std::nullopt));
}

std::shared_ptr<BaseResponse> UpdateLogicFunc::doGetToken()
{
    const auto transport = HttpFunctionPost::getPost(mBaseURL(), nullptr);
    return std::make_shared<BaseResponse>(
        transport->DoPost(QStringLiteral("cmd=gettoken"), std::nullopt));
}

uint64_t UpdateLogicFunc::doGetFileSize(const QString &token, const QString &fileName)
{
    const auto transport = HttpFunctionPost::getPost(mBaseURL(), nullptr);
    return transport->getFileSize(downloadCommand(token, fileName));
}

int64_t UpdateLogicFunc::doStartDownload(const QString &token, const QString &fileName,
                                         const QString &localPath)
{
    d_->failure_.set(std::nullopt);
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

UpdateDownloadProgress UpdateLogicFunc::doGetDownloadProgress() const
{
    UpdateDownloadProgress progress;
    progress.failure = d_->failure_.get();
    if (const auto download = mDownload()) {
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
    d_->failure_.set(reason(error));
    systemLog(QStringLiteral("download Finish Error: ") + error.debugDescription());
}
