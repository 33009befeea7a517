#include "ZVUpdateProc.h"

#include "../platform/KnownErrors.h"
#include "../platform/files/FileDigest.h"
#include "../platform/files/Files.h"
#include "../platform/files/LockedFile.h"
#include "../platform/files/PartialFile.h"
#include "../platform/settings/Locale.h"
#include "../platform/settings/SystemLog.h"
#include "../platform/settings/Text.h"
#include "../platform/threads/ApplicationEnd.h"
#include "../platform/threads/Guarded.h"
#include "../platform/threads/MainQueue.h"
#include "../preferences/UpdatePreferences.h"
#include "../transport/HttpFunctionPost.h"
#include "../transport/ZVMisc.h"
#include "LanguageSelection.h"
#include "ReplacedClients.h"
#include "UpdateFiles.h"

#include <QDateTime>

#include <atomic>

using namespace ZVPlatform;

namespace {

// The thread that uses the shared controller.
std::shared_ptr<ZVUpdateProc> sharedUpdateProcInstance;

QDateTime timeZero()
{
    return QDateTime::fromSecsSinceEpoch(0, Qt::UTC);
}

int64_t endCheck(ZVUpdateProc::Result result)
{
    const bool foundSomething = result != ZVUpdateProc::ZVNoUpdate;
    UpdatePreferences::setNextCheckDate(foundSomething ? timeZero()
                                                       : QDateTime::currentDateTimeUtc());
    UpdatePreferences::synchronise();
    return result;
}

bool isSameDigest(const std::optional<QString> &one, const std::optional<QString> &other)
{
    return one && other && one->toLower() == other->toLower();
}

bool hasDigest(const QString &path, const std::optional<QString> &digest)
{
    // A file that is missing has the digest of no bytes, but is not the file that was announced.
    return Files::exists(path) && isSameDigest(ZVMisc::getFileMD5(path), digest);
}

// Whether the user's switch and the next-check date let a check happen.
bool isTimeToCheck()
{
    if (const auto automaticUpdating = UpdatePreferences::automaticUpdating()) {
        UpdatePreferences::setNextCheckDate(timeZero());
        UpdatePreferences::synchronise();
        if (!*automaticUpdating)
            return false;
    } else {
        UpdatePreferences::setAutomaticUpdating(true);
        UpdatePreferences::synchronise();
    }
    const auto nextCheck = UpdatePreferences::nextCheckDate();
    return !nextCheck || *nextCheck <= QDateTime::currentDateTimeUtc();
}

void discard(const UpdateFiles &files)
{
    Files::remove(files.diskImagePath);
    Files::remove(files.temporaryPath);
}

} // namespace

/// What belongs to one controller, and the steps of its checks.
class ZVUpdateProc::Private
{
public:
    enum class Verified { Yes, No, NotNow };

    explicit Private(ZVUpdateProc *controller) : self(controller) {}

    int64_t fetch(UpdateLogicFunc &client, const UpdateFiles &files, const QString &digest);
    Verified installVerified(LockedFile &file, const QString &diskImagePath,
                             const std::optional<QString> &digest);
    bool isUnwanted() const;
    void scheduleFileReady(const QString &path);
    void debugLog(const QString &message) const;

    ZVUpdateProc *const self;
    Guarded<DelegateRef<ZVUpdateProcDelegate>> delegate_;
    Guarded<std::shared_ptr<CheckUpdateResponse>> mLastCheckUpdateResponse_;
    Guarded<std::shared_ptr<UpdateLogicFunc>> mCurrentDownloadUpdateLogic_;
    Guarded<std::shared_ptr<UpdateInfoWindowController>> mUpdateInfoWindowCtrl_;
    Guarded<std::optional<QString>> mProductID_;
    Guarded<std::optional<QString>> mProductVersion_;
    Guarded<std::optional<QString>> mSaveFileDirectory_;
    std::atomic<bool> mDebug_ = false;
    std::atomic<bool> isEnding_ = false;
};

std::shared_ptr<ZVUpdateProc> ZVUpdateProc::getSharedZVUpdateProc()
{
    if (!sharedUpdateProcInstance) {
        sharedUpdateProcInstance = std::make_shared<ZVUpdateProc>();
        whenApplicationEnds(releaseSharedZVUpdateProc);
    }
    return sharedUpdateProcInstance;
}

void ZVUpdateProc::releaseSharedZVUpdateProc()
{
    // The variable is cleared first: the destructor runs the event loop, which may ask for it.
    const auto released = std::exchange(sharedUpdateProcInstance, nullptr);
}

ZVUpdateProc::ZVUpdateProc() : d_(std::make_unique<Private>(this)) {}

ZVUpdateProc::~ZVUpdateProc()
{
    d_->isEnding_ = true;
    // From here on no download of this or an earlier check finds anybody to report to.
    UpdateLogicFuncDelegate::retire();
    setMCurrentDownloadUpdateLogic(nullptr);
    setMLastCheckUpdateResponse(nullptr);
    setMUpdateInfoWindowCtrl(nullptr);
    setDelegate(nullptr);
    UpdateInfoWindowControllerDelegate::retire();
}

void ZVUpdateProc::setProductID(const std::optional<QString> &productID,
                                const std::optional<QString> &productVersion,
                                const std::optional<QString> &productSaveDirectory)
{
    setMProductID(productID);
    setMProductVersion(productVersion);
    setMSaveFileDirectory(productSaveDirectory);
}

int64_t ZVUpdateProc::updateWithDelegate(ZVUpdateProcDelegate *delegate)
{
    const auto productID = mProductID();
    const auto productVersion = mProductVersion();
    const auto directory = mSaveFileDirectory();
    if (!productID || !productVersion || !directory)
        return ZVNotConfigured;
    if (!isTimeToCheck())
        return ZVSkipped;

    setDelegate(delegate);
    if (!Files::exists(*directory))
        Files::createDirectory(*directory);
    const auto client = std::make_shared<UpdateLogicFunc>();
    client->setDelegate(this);
    auto former = mCurrentDownloadUpdateLogic();
    setMCurrentDownloadUpdateLogic(client);
    ReplacedClients::keep(std::move(former));

    // The reply and the client are kept for those who ask later; the check goes on with its own.
    const auto reply = client->doCheckUpdate(*productID, *productVersion);
    setMLastCheckUpdateResponse(reply);
    const QString version = reply->ZVUpdateVersion().value_or(QString());
    const QString digest = reply->ZVMD5().value_or(QString());
    const auto files = UpdateFiles::named(*directory, *productID, version);
    if (!reply->ok() || version.isEmpty() || digest.isEmpty() || !files)
        return endCheck(ZVNoUpdate);
    d_->debugLog(QStringLiteral("checkUpdate OK ... ") + reply->debugDescription());
    const int64_t result = d_->fetch(*client, *files, digest);
    // Another check may have replaced the client before there was a download to keep it for.
    if (client != mCurrentDownloadUpdateLogic())
        ReplacedClients::keep(client);
    return result;
}

QString ZVUpdateProc::getDefaultLangID() const
{
    return languageCodeForLocale(currentLocaleIdentifier());
}

std::optional<QString>
ZVUpdateProc::getUpdateMessageWithLang(const std::optional<QString> &code) const
{
    const auto response = mLastCheckUpdateResponse();
    return response ? response->getUpdateMessageWithLang(code) : std::nullopt;
}

void ZVUpdateProc::downloadFinishWithFilePath(const QString &path)
{
    // The latest reply counts, also for a download that an earlier check started: a file that is no
    // longer offered is of no use.
    const auto response = mLastCheckUpdateResponse();
    const auto digest = response ? response->ZVMD5() : std::nullopt;
    const bool debug = mDebug();
    // Stays locked until a wrong file has been removed: another process may begin its own under the
    // name as soon as it is not.
    LockedFile file(path, [this] { return d_->isUnwanted(); });
    const auto verified = d_->installVerified(file, UpdateFiles::diskImagePathFor(path), digest);
    if (verified == Private::Verified::NotNow) {
        const bool isStopped = d_->isUnwanted();
        HttpFunctionPost::failHere(isStopped ? networkError(NetworkError::Cancelled)
                                             : fileError(FileError::InUse));
        if (!isStopped)
            systemLog(
                QStringLiteral("Another process has the file; the next check deals with it: ") +
                path);
        return;
    }
    if (verified == Private::Verified::Yes) {
        // Without a main queue the notification may have been the last owner: "this" may be gone.
        if (debug)
            systemLog(QStringLiteral("ZVUpdateProc downloadFinishWithFilePath:") + path);
        return;
    }
    HttpFunctionPost::failHere(fileError(FileError::WrongDigest));
    if (debug) {
        systemLog(ZVMisc::getFileMD5(path));
        systemLog(digest ? digest->toLower() : describe(digest));
        systemLog(QStringLiteral("MD5 錯誤!! 重新下載"));
    }
    file.remove();
}

void ZVUpdateProc::infoWindowClosedActions(uint64_t action)
{
    ZVUpdateProcDelegate *host = delegate();
    if (!host)
        return;
    if (action == 1)
        host->windowClosedUpdateAction();
    else if (action == 0)
        host->windowClosedCancelAction();
}

void ZVUpdateProc::setDebugMode(bool debug)
{
    setMDebug(debug);
}

ZVUpdateProcDelegate *ZVUpdateProc::delegate() const
{
    return d_->delegate_.get().get();
}

void ZVUpdateProc::setDelegate(ZVUpdateProcDelegate *delegate)
{
    d_->delegate_.set(DelegateRef(delegate));
}

std::shared_ptr<CheckUpdateResponse> ZVUpdateProc::mLastCheckUpdateResponse() const
{
    return d_->mLastCheckUpdateResponse_.get();
}

std::shared_ptr<UpdateLogicFunc> ZVUpdateProc::mCurrentDownloadUpdateLogic() const
{
    return d_->mCurrentDownloadUpdateLogic_.get();
}

std::shared_ptr<UpdateInfoWindowController> ZVUpdateProc::mUpdateInfoWindowCtrl() const
{
    return d_->mUpdateInfoWindowCtrl_.get();
}

std::optional<QString> ZVUpdateProc::mProductID() const
{
    return d_->mProductID_.get();
}

std::optional<QString> ZVUpdateProc::mProductVersion() const
{
    return d_->mProductVersion_.get();
}

std::optional<QString> ZVUpdateProc::mSaveFileDirectory() const
{
    return d_->mSaveFileDirectory_.get();
}

bool ZVUpdateProc::mDebug() const
{
    return d_->mDebug_;
}

void ZVUpdateProc::setMLastCheckUpdateResponse(const std::shared_ptr<CheckUpdateResponse> &response)
{
    d_->mLastCheckUpdateResponse_.set(response);
}

void ZVUpdateProc::setMCurrentDownloadUpdateLogic(const std::shared_ptr<UpdateLogicFunc> &client)
{
    d_->mCurrentDownloadUpdateLogic_.set(client);
}

void ZVUpdateProc::setMUpdateInfoWindowCtrl(
    const std::shared_ptr<UpdateInfoWindowController> &controller)
{
    d_->mUpdateInfoWindowCtrl_.set(controller);
}

void ZVUpdateProc::setMProductID(const std::optional<QString> &id)
{
    d_->mProductID_.set(id);
}

void ZVUpdateProc::setMProductVersion(const std::optional<QString> &v)
{
    d_->mProductVersion_.set(v);
}

void ZVUpdateProc::setMSaveFileDirectory(const std::optional<QString> &d)
{
    d_->mSaveFileDirectory_.set(d);
}

void ZVUpdateProc::setMDebug(bool debug)
{
    d_->mDebug_ = debug;
}

// Has the offered installer on disk, or starts its download.
int64_t ZVUpdateProc::Private::fetch(UpdateLogicFunc &client, const UpdateFiles &files,
                                     const QString &digest)
{
    const auto lastDownloadDigest = UpdatePreferences::lastDownloadDigest();

    // A directory is nobody's installer, but stays, and so does what has been fetched.
    if (Files::exists(files.diskImagePath) && !Files::isDirectory(files.diskImagePath)) {
        if (hasDigest(files.diskImagePath, digest)) {
            debugLog(QStringLiteral("下載好，與線上的MD5相同"));
            scheduleFileReady(files.diskImagePath);
            return endCheck(ZVInstallerReady);
        }
        debugLog(QStringLiteral("下載好，與線上的MD5不相同，重新下載"));
        discard(files);
    }
    if (!isSameDigest(lastDownloadDigest, digest)) {
        debugLog(QStringLiteral("正在下載的暫存檔 MD5 與 Server 的不同"));
        debugLog(QStringLiteral("local MD5 = ") + describe(lastDownloadDigest));
        debugLog(QStringLiteral("server MD5 = ") + digest);
        UpdatePreferences::setLastDownloadDigest(digest.toLower());
        discard(files);
    } else if (PartialFile::beginsInTheMiddle(files.temporaryPath)) {
        Files::remove(files.temporaryPath);
    }

    const auto tokenReply = client.doGetToken();
    if (!tokenReply->ok())
        return endCheck(ZVNoUpdate);
    debugLog(QStringLiteral("doGetToken OK ... ") + tokenReply->debugDescription());

    const QString token = tokenReply->ID().value_or(QString());
    const uint64_t remoteSize = client.doGetFileSize(token, files.serviceFileName);
    if (remoteSize == Files::size(files.temporaryPath)) {
        LockedFile file(files.temporaryPath, [this] { return isUnwanted(); });
        if (installVerified(file, files.diskImagePath, digest) == Verified::Yes)
            return endCheck(ZVInstallerReady);
    }

    // A file of the full size but with another digest is not removed: the download resumes it, and
    // the service has the last word.
    debugLog(QStringLiteral("fileSize ... ") + QString::number(static_cast<int64_t>(remoteSize)));
    client.doStartDownload(token, files.serviceFileName, files.temporaryPath);
    return endCheck(ZVDownloadStarted);
}

// Verifies a complete temporary file and, when somebody wants to hear of it, gives it its final
// name. What is verified is what gets the name: the file is locked meanwhile. One that another has
// locked, or that is not wanted any more, stays as it is, for the next check to deal with.
ZVUpdateProc::Private::Verified
ZVUpdateProc::Private::installVerified(LockedFile &file, const QString &diskImagePath,
                                       const std::optional<QString> &digest)
{
    if (file.state() == LockedFile::State::InUse)
        return Verified::NotNow;
    if (file.state() == LockedFile::State::NotOpen)
        return Verified::No; // The digest of no bytes, but not the file that was announced.
    const auto found = md5OfOpenFile(file.descriptor(), [this] { return isUnwanted(); });
    if (!found)
        return Verified::NotNow;
    if (!isSameDigest(QString::fromLatin1(found->toHex()), digest))
        return Verified::No;
    if (!self->delegate())
        return Verified::Yes;

    const LockedFile::Moved moved = file.moveTo(diskImagePath);
    if (moved == LockedFile::Moved::NotThisFile)
        return Verified::NotNow;
    if (moved == LockedFile::Moved::No && Files::isDirectory(diskImagePath))
        systemLog(QStringLiteral("A directory is in the place of the installer: ") + diskImagePath);
    else if (moved == LockedFile::Moved::No)
        file.remove();
    file.close(); // A file that is open for writing cannot be started as a program.
    scheduleFileReady(diskImagePath);
    return Verified::Yes;
}

bool ZVUpdateProc::Private::isUnwanted() const
{
    return isEnding_ || UpdateLogicFunc::isStopRequestedHere();
}

// The notification owns the controller until it has run, unless nobody owns it by a shared pointer:
// then it finds out whether the controller is still there. It looks its delegate up only then. A
// controller that is being destroyed, and waits for this very call, sends none. Ownership is taken
// only to be passed on: the last owner must not let go on the thread of a download, where a window
// cannot be destroyed.
void ZVUpdateProc::Private::scheduleFileReady(const QString &path)
{
    const auto owner = self->weak_from_this();
    auto owned = owner.lock();
    const bool hasLostItsOwners = !owned && std::weak_ptr<ZVUpdateProc>().owner_before(owner);
    if (!self->delegate() || isEnding_ || hasLostItsOwners)
        return;
    MainQueue::async([owned = std::move(owned),
                      unowned = DelegateRef<UpdateLogicFuncDelegate>(self), path] {
        const auto *controller = owned ? owned.get() : static_cast<ZVUpdateProc *>(unowned.get());
        ZVUpdateProcDelegate *host = controller ? controller->delegate() : nullptr;
        if (host)
            host->UpdateFileReady(path);
    });
}

void ZVUpdateProc::Private::debugLog(const QString &message) const
{
    if (mDebug_)
        systemLog(message);
}
