#include "ZVUpdateProc.h"

#include "../platform/KnownErrors.h"
#include "../platform/files/Files.h"
#include "../platform/files/LockedFile.h"
#include "../platform/files/PartialFile.h"
#include "../platform/settings/Locale.h"
#include "../platform/settings/SystemLog.h"
#include "../platform/settings/Text.h"
#include "../platform/threads/ApplicationEnd.h"
#include "../platform/threads/Guarded.h"
#include "../platform/threads/MainQueue.h"
#include "../platform/threads/Worker.h"
#include "../preferences/UpdatePreferences.h"
#include "../transport/HttpFunctionPost.h"
#include "../transport/ZVMisc.h"
#include "LanguageSelection.h"
#include "ReplacedClients.h"
#include "UpdateFiles.h"

#include <QDateTime>
#include <QFile>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <limits>
#include <new>
#include <thread>
#include <utility>

using namespace ZVPlatform;

using Kind = UpdateOutcome::Kind;

namespace {

// Used by the thread that uses the shared controller.
std::shared_ptr<ZVUpdateProc> &sharedUpdateProcInstance()
{
    static auto &instance = *new std::shared_ptr<ZVUpdateProc>;
    return instance;
}

QDateTime timeZero()
{
    return QDateTime::fromSecsSinceEpoch(0, Qt::UTC);
}

// What a check leaves for the next one.
void noteCheck(Kind outcome)
{
    const bool foundSomething = outcome == Kind::DownloadStarted || outcome == Kind::InstallerReady;
    UpdatePreferences::setNextCheckDate(foundSomething ? timeZero()
                                                       : QDateTime::currentDateTimeUtc());
    UpdatePreferences::synchronise();
}

bool isSameDigest(const std::optional<QString> &kept, const QString &offered)
{
    return kept && kept->toLower() == offered.toLower();
}

// What keeps a check from happening now: the user's switch, or the next-check date.
std::optional<Kind> obstacleToCheck()
{
    if (const auto automaticUpdating = UpdatePreferences::automaticUpdating()) {
        UpdatePreferences::setNextCheckDate(timeZero());
        UpdatePreferences::synchronise();
        if (!*automaticUpdating)
            return Kind::SwitchedOff;
    } else {
        UpdatePreferences::setAutomaticUpdating(true);
        UpdatePreferences::synchronise();
    }
    const auto nextCheck = UpdatePreferences::nextCheckDate();
    return nextCheck && *nextCheck > QDateTime::currentDateTimeUtc() ? std::optional(Kind::NotYet)
                                                                     : std::nullopt;
}

// The size that the service tells; 0 and all ones stand for none.
bool isKnown(uint64_t remoteSize)
{
    return remoteSize != 0 && remoteSize != std::numeric_limits<uint64_t>::max();
}

// Whether a temporary file is complete, and yet not what is offered, or longer. The service has no
// more bytes for such a file.
bool isSpent(uint64_t present, uint64_t remoteSize)
{
    return isKnown(remoteSize) && present >= remoteSize;
}

// What keeps a download from being written.
std::optional<Kind> obstacleToDownload(const QString &path, uint64_t remoteSize)
{
    if (!Files::isInWritableDirectory(path))
        return Kind::DirectoryNotWritable;
    const uint64_t present = Files::size(path);
    const bool hasRoom = !isKnown(remoteSize) || isSpent(present, remoteSize) ||
                         remoteSize - present <= Files::room(path);
    return hasRoom ? std::nullopt : std::optional(Kind::DiskFull);
}

UpdateOutcome outOfResources()
{
    return {Kind::BrokenOff,
            QStringLiteral("The system has not enough memory or threads for a check.")};
}

void discard(const UpdateFiles &files, const std::function<bool()> &stopped)
{
    Files::remove(files.diskImagePath, stopped);
    Files::remove(files.temporaryPath, stopped);
}

constexpr std::chrono::milliseconds betweenProgress(100);
constexpr int rangeNotSatisfiable = 416; // The HTTP status where there are no more bytes.

// Whether there was memory for a call.
bool tried(const std::function<void()> &call)
{
    try {
        call();
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

} // namespace

/// What belongs to one controller, and the steps of its checks.
class ZVUpdateProc::Private
{
public:
    enum class Verified {
        Named,   // Good, and under its final name if it can have that.
        Unnamed, // Good; nobody wants to hear of it.
        No,
        NotNow,
        Elsewhere, // Good, but what has its final name is another file.
    };

    /// How a check is made. Only those in the background look ahead for what will keep the download
    /// from being written.
    enum class Call { Blocking, Scheduled, AskedByUser };

    /// The outcome of a check, and what is still to be done for it: the start of the download, or
    /// the notification.
    struct Checked
    {
        UpdateOutcome outcome;
        std::function<void()> rest = {};
    };

    explicit Private(ZVUpdateProc *controller) : self(controller) {}

    std::optional<Kind> obstacle(Call call) const;
    Checked check(const std::shared_ptr<UpdateLogicFunc> &client, Call call);
    Checked fetch(const std::shared_ptr<UpdateLogicFunc> &client, const UpdateFiles &files,
                  const CheckUpdateResponse &reply, Call call);
    Checked checkInBackground(const std::shared_ptr<UpdateLogicFunc> &client, Call call);
    bool hasInstaller(const UpdateFiles &files, const CheckUpdateResponse &reply,
                      const std::function<bool()> &stopped);
    Verified installVerified(LockedFile &file, const QString &diskImagePath,
                             const CheckUpdateResponse *reply,
                             const std::function<bool()> &stopped);
    void endCheck(const Checked &checked);
    Checked download(const std::shared_ptr<UpdateLogicFunc> &client, const UpdateFiles &files,
                     const QString &token, const std::optional<ReleaseStatement> &release,
                     Call call);
    std::function<bool()> startingOver(const std::weak_ptr<UpdateLogicFunc> &client,
                                       const std::function<void(UpdateLogicFunc &)> &start,
                                       const QString &temporaryPath);
    bool isUnwanted() const;
    void scheduleFileReady(const QString &path);
    std::function<void()> whileHere(std::function<void(ZVUpdateProc &)> call) const;
    void onMain(std::function<void(ZVUpdateProc &)> call) const;
    void watchProgress();
    void lookSoon() const;
    void tellProgress();
    void debugLog(const QString &message) const;

    ZVUpdateProc *const self;
    Guarded<DelegateRef<ZVUpdateProcDelegate>> delegate_;
    Guarded<std::shared_ptr<CheckUpdateResponse>> mLastCheckUpdateResponse_;
    Guarded<std::shared_ptr<UpdateLogicFunc>> mCurrentDownloadUpdateLogic_;
    Guarded<std::shared_ptr<UpdateInfoWindowController>> mUpdateInfoWindowCtrl_;
    Guarded<std::optional<UpdateOutcome>> lastOutcome_;
    Guarded<std::optional<QString>> mProductID_;
    Guarded<std::optional<QString>> mProductVersion_;
    Guarded<std::optional<QString>> mSaveFileDirectory_;
    Guarded<std::optional<ReleaseKeys>> releaseKeys_; // Absent: no signature is demanded.
    std::atomic<bool> hasChecked_ = false;
    std::atomic<bool> mDebug_ = false;
    const std::shared_ptr<std::atomic<bool>> isEnding_ = std::make_shared<std::atomic<bool>>(false);
    Guarded<std::function<bool()>> startsOver_; // Whether a failed download has begun anew.

    // The main thread's, of the check in the background and its download.
    bool isProgressWatched_ = false;
    std::shared_ptr<UpdateLogicFunc> checking_;
    // The latest check's. Its thread does no more than return once checking_ is null; the next
    // check joins it, or the controller's end.
    std::unique_ptr<Worker> worker_;
};

std::shared_ptr<ZVUpdateProc> ZVUpdateProc::getSharedZVUpdateProc()
{
    auto &instance = sharedUpdateProcInstance();
    if (!instance) {
        instance = std::make_shared<ZVUpdateProc>();
        whenApplicationEnds(releaseSharedZVUpdateProc);
    }
    return instance;
}

void ZVUpdateProc::releaseSharedZVUpdateProc()
{
    // The variable is cleared first: the destructor runs the event loop, which may ask for it.
    const auto released = std::exchange(sharedUpdateProcInstance(), nullptr);
}

ZVUpdateProc::ZVUpdateProc() : d_(std::make_unique<Private>(this)) {}

ZVUpdateProc::~ZVUpdateProc()
{
    *d_->isEnding_ = true;
    if (d_->checking_)
        d_->checking_->doCancel();
    d_->worker_.reset();
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

ZVPlatform::Result<void> ZVUpdateProc::setReleaseKeys(const QList<QByteArray> &keys)
{
    const auto read = ReleaseKeys::read(keys);
    const bool isInTime = !d_->hasChecked_;
    d_->releaseKeys_.set(read && isInTime ? *read : ReleaseKeys());
    if (!isInTime)
        return Failure{QStringLiteral("Release keys are to be set before the first check.")};
    if (!read)
        return Failure{read.error()};
    return {};
}

bool ZVUpdateProc::accepts(const CheckUpdateResponse &reply) const
{
    return !d_->releaseKeys_.get() || reply.release();
}

int64_t ZVUpdateProc::updateWithDelegate(ZVUpdateProcDelegate *delegate)
{
    d_->hasChecked_ = true;
    if (const auto obstacle = d_->obstacle(Private::Call::Blocking)) {
        d_->lastOutcome_.set(UpdateOutcome(*obstacle));
        return resultFor(*obstacle);
    }
    setDelegate(delegate);
    const auto client = std::make_shared<UpdateLogicFunc>();
    const Private::Checked checked = d_->check(client, Private::Call::Blocking);
    if (checked.rest)
        checked.rest();
    noteCheck(checked.outcome.kind);
    d_->lastOutcome_.set(checked.outcome);
    // Another check may have replaced the client before there was a download to keep it for.
    if (client != mCurrentDownloadUpdateLogic())
        ReplacedClients::keep(client);
    return resultFor(checked.outcome.kind);
}

bool ZVUpdateProc::startCheck(CheckReason reason, ZVUpdateProcDelegate *delegate)
{
    if (isChecking())
        return false;
    d_->hasChecked_ = true;
    setDelegate(delegate);
    const auto client = std::make_shared<UpdateLogicFunc>();
    d_->checking_ = client;
    const auto call =
        reason == CheckReason::AskedByUser ? Private::Call::AskedByUser : Private::Call::Scheduled;
    const auto end = [](const Private::Checked &checked) {
        return [checked](ZVUpdateProc &controller) { controller.d_->endCheck(checked); };
    };
    try {
        d_->worker_ = std::make_unique<Worker>(
            QStringLiteral("Update_Check"), [d = d_.get(), client, call, end] {
                const Private::Checked checked = d->checkInBackground(client, call);
                // The outcome is told in any case, once there is memory for it.
                while (!tried([&] { d->onMain(end(checked)); }))
                    std::this_thread::sleep_for(betweenProgress);
            });
    } catch (const std::exception &) {
        d_->onMain(end({outOfResources()}));
    }
    return true;
}

ZVUpdateProc::Result ZVUpdateProc::resultFor(UpdateOutcome::Kind outcome)
{
    switch (outcome) {
    case Kind::DownloadStarted:
        return ZVDownloadStarted;
    case Kind::InstallerReady:
        return ZVInstallerReady;
    case Kind::NotConfigured:
        return ZVNotConfigured;
    case Kind::SwitchedOff:
    case Kind::NotYet:
        return ZVSkipped;
    default:
        return ZVNoUpdate;
    }
}

std::optional<UpdateOutcome> ZVUpdateProc::lastOutcome() const
{
    return d_->lastOutcome_.get();
}

bool ZVUpdateProc::isChecking() const
{
    return d_->checking_ != nullptr;
}

void ZVUpdateProc::stopUpdate()
{
    if (d_->checking_)
        d_->checking_->doCancel();
    if (const auto client = mCurrentDownloadUpdateLogic())
        client->doCancel();
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
    const auto stopped = [this] { return d_->isUnwanted(); };
    LockedFile file(path, stopped);
    const QString diskImagePath = UpdateFiles::diskImagePathFor(path);
    const auto verified = d_->installVerified(file, diskImagePath, response.get(), stopped);
    if (verified == Private::Verified::Elsewhere)
        return HttpFunctionPost::failHere(fileError(FileError::NotWritable));
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
    if (verified == Private::Verified::Named)
        d_->scheduleFileReady(diskImagePath);
    if (verified == Private::Verified::Named || verified == Private::Verified::Unnamed) {
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

void ZVUpdateProc::downloadFailed(const UpdateOutcome &outcome)
{
    const auto startsOver = d_->startsOver_.get();
    if ((startsOver && startsOver()) || !delegate())
        return;
    d_->onMain([outcome](ZVUpdateProc &controller) {
        if (ZVUpdateProcDelegate *host = controller.delegate())
            host->updateDownloadFailed(outcome);
    });
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

void ZVUpdateProc::infoWindowRefusedInstaller()
{
    if (ZVUpdateProcDelegate *host = delegate())
        host->updateDownloadFailed(UpdateOutcome(Kind::WrongDigest));
}

bool ZVUpdateProc::infoWindowInstalls(const QString &path)
{
    ZVUpdateProcDelegate *host = delegate();
    QFile installer(path);
    return host && installer.open(QIODevice::ReadOnly) &&
           host->installUpdate(path, installerKind(installer));
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

// What keeps a check from being made.
std::optional<Kind> ZVUpdateProc::Private::obstacle(Call call) const
{
    if (!self->mProductID() || !self->mProductVersion() || !self->mSaveFileDirectory())
        return Kind::NotConfigured;
    return call == Call::AskedByUser ? std::nullopt : obstacleToCheck();
}

// One check, on the calling thread.
ZVUpdateProc::Private::Checked
ZVUpdateProc::Private::check(const std::shared_ptr<UpdateLogicFunc> &client, Call call)
{
    const QString productID = self->mProductID().value_or(QString());
    const QString productVersion = self->mProductVersion().value_or(QString());
    const QString directory = self->mSaveFileDirectory().value_or(QString());
    if (!Files::exists(directory))
        Files::createDirectory(directory);
    client->setDelegate(self);
    auto former = self->mCurrentDownloadUpdateLogic();
    self->setMCurrentDownloadUpdateLogic(client);
    ReplacedClients::keep(std::move(former));

    // The reply and the client are kept for those who ask later; the check goes on with its own.
    auto reply = client->doCheckUpdate(productID, productVersion);
    std::optional<UpdateOutcome> refusal;
    if (const auto keys = releaseKeys_.get(); keys && reply->ok()) {
        const auto release = reply->signedRelease(*keys, productID, productVersion);
        if (release)
            reply->setRelease(*release);
        else
            refusal = release.error();
    }
    if (refusal) // Nor is anything else in it to be believed.
        reply = std::make_shared<CheckUpdateResponse>();
    if (!client->isCancelled()) // By the one that is kept a running download is verified.
        self->setMLastCheckUpdateResponse(reply);
    const QString version = reply->ZVUpdateVersion().value_or(QString());
    const QString digest = reply->ZVMD5().value_or(QString());
    const auto files = UpdateFiles::named(directory, productID, version);
    if (const auto failure = client->lastFailure())
        return {*failure};
    if (refusal)
        return {*refusal};
    if (!reply->ok()) {
        Checked checked{UpdateOutcome(Kind::NothingNewer)};
        checked.outcome.serviceMessage = reply->msg().value_or(QString());
        return checked;
    }
    if (version.isEmpty() || digest.isEmpty())
        return {{Kind::NotAService,
                 QStringLiteral("The service says that there is an update, but not which.")}};
    if (!files)
        return {UpdateOutcome(Kind::UnsafeName)};
    debugLog(QStringLiteral("checkUpdate OK ... ") + reply->debugDescription());
    return fetch(client, *files, *reply, call);
}

// The same on a thread of the library's, at whose end nothing is thrown.
ZVUpdateProc::Private::Checked
ZVUpdateProc::Private::checkInBackground(const std::shared_ptr<UpdateLogicFunc> &client, Call call)
{
    try {
        if (const auto found = obstacle(call))
            return {UpdateOutcome(*found)};
        Checked checked = check(client, call);
        if (call == Call::Scheduled && !client->isCancelled())
            noteCheck(checked.outcome.kind);
        return checked;
    } catch (const std::bad_alloc &) {
        return {outOfResources()};
    }
}

// Has the offered installer on disk, or prepares its download.
ZVUpdateProc::Private::Checked
ZVUpdateProc::Private::fetch(const std::shared_ptr<UpdateLogicFunc> &client,
                             const UpdateFiles &files, const CheckUpdateResponse &reply, Call call)
{
    const auto stopped = [this, &client] { return *isEnding_ || client->isCancelled(); };
    const Checked ready{UpdateOutcome(Kind::InstallerReady),
                        [this, path = files.diskImagePath] { scheduleFileReady(path); }};
    if (hasInstaller(files, reply, stopped))
        return ready;
    if (stopped())
        return {UpdateOutcome(Kind::Stopped)};

    const auto tokenReply = client->doGetToken();
    if (!tokenReply->ok()) {
        Checked checked{client->lastFailure().value_or(UpdateOutcome(Kind::NoToken))};
        checked.outcome.serviceMessage = tokenReply->msg().value_or(QString());
        return checked;
    }
    debugLog(QStringLiteral("doGetToken OK ... ") + tokenReply->debugDescription());

    const QString token = tokenReply->ID().value_or(QString());
    const uint64_t remoteSize = client->doGetFileSize(token, files.serviceFileName);
    const auto &release = reply.release();
    if (release && (client->lastFailure() || remoteSize != release->size))
        return {client->lastFailure().value_or(UpdateOutcome(Kind::WrongSize))};
    if (remoteSize == Files::size(files.temporaryPath)) {
        LockedFile file(files.temporaryPath, stopped);
        const Verified verified = installVerified(file, files.diskImagePath, &reply, stopped);
        if (verified == Verified::Named)
            return ready;
        if (verified == Verified::Unnamed)
            return {ready.outcome};
        if (verified == Verified::Elsewhere)
            return {UpdateOutcome(Kind::DirectoryNotWritable)};
    }

    debugLog(QStringLiteral("fileSize ... ") + QString::number(static_cast<int64_t>(remoteSize)));
    // The length of a page that says what is wrong is not the installer's.
    const uint64_t toldSize = client->lastFailure() ? 0 : remoteSize;
    if ((call == Call::AskedByUser || release) &&
        isSpent(Files::size(files.temporaryPath), toldSize) && !stopped())
        Files::remove(files.temporaryPath, stopped); // A file that another process has stays.
    const auto found =
        call == Call::Blocking ? std::nullopt : obstacleToDownload(files.temporaryPath, toldSize);
    return found ? Checked{UpdateOutcome(*found)} : download(client, files, token, release, call);
}

// A download that is yet to be started.
ZVUpdateProc::Private::Checked
ZVUpdateProc::Private::download(const std::shared_ptr<UpdateLogicFunc> &client,
                                const UpdateFiles &files, const QString &token,
                                const std::optional<ReleaseStatement> &release, Call call)
{
    const auto start = [token, files, release, call](UpdateLogicFunc &logic) {
        const auto fullDisk =
            call == Call::Blocking ? UpdateLogicFunc::GoOn : UpdateLogicFunc::Stop;
        logic.doStartDownload(token, files.serviceFileName, files.temporaryPath, fullDisk,
                              release ? std::optional<uint64_t>(release->size) : std::nullopt);
    };
    return {UpdateOutcome(Kind::DownloadStarted), [this, client, start, files, call] {
                // Before there is a download to fail.
                startsOver_.set(call == Call::AskedByUser
                                    ? startingOver(client, start, files.temporaryPath)
                                    : nullptr);
                start(*client);
            }};
}

// Where the service tells no size, only the download shows that it has no more bytes for the
// temporary file. It begins anew, once.
std::function<bool()>
ZVUpdateProc::Private::startingOver(const std::weak_ptr<UpdateLogicFunc> &client,
                                    const std::function<void(UpdateLogicFunc &)> &start,
                                    const QString &temporaryPath)
{
    return [this, client, start, temporaryPath] {
        const auto logic = client.lock();
        const auto failure = logic ? logic->lastFailure() : std::nullopt;
        if (!failure || failure->httpStatus != rangeNotSatisfiable || logic->isCancelled())
            return false;
        startsOver_.set(nullptr);
        Files::remove(temporaryPath);
        start(*logic);
        return true;
    };
}

// Whether the offered installer is on disk. What is there of another goes.
bool ZVUpdateProc::Private::hasInstaller(const UpdateFiles &files, const CheckUpdateResponse &reply,
                                         const std::function<bool()> &stopped)
{
    const QString digest = reply.ZVMD5().value_or(QString());
    const auto lastDownloadDigest = UpdatePreferences::lastDownloadDigest();
    // A directory is nobody's installer, but stays, and so does what has been fetched.
    if (Files::exists(files.diskImagePath) && !Files::isDirectory(files.diskImagePath)) {
        const auto isOffered = reply.announces(files.diskImagePath, stopped);
        if (stopped())
            return false;
        // A file that is missing has the digest of no bytes, but is not the file that was
        // announced.
        if (isOffered.value_or(false) && self->accepts(reply) &&
            Files::exists(files.diskImagePath)) {
            debugLog(QStringLiteral("下載好，與線上的MD5相同"));
            return true;
        }
        debugLog(QStringLiteral("下載好，與線上的MD5不相同，重新下載"));
        discard(files, stopped);
    }
    if (!isSameDigest(lastDownloadDigest, digest)) {
        debugLog(QStringLiteral("正在下載的暫存檔 MD5 與 Server 的不同"));
        debugLog(QStringLiteral("local MD5 = ") + describe(lastDownloadDigest));
        debugLog(QStringLiteral("server MD5 = ") + digest);
        UpdatePreferences::setLastDownloadDigest(digest.toLower());
        discard(files, stopped);
    } else if (PartialFile::beginsInTheMiddle(files.temporaryPath)) {
        Files::remove(files.temporaryPath, stopped);
    }
    return false;
}

// On the main thread: what the check has prepared begins, so that all which follows is told after
// the outcome.
void ZVUpdateProc::Private::endCheck(const Checked &checked)
{
    const auto client = std::exchange(checking_, nullptr);
    const bool isStopped = client->isCancelled();
    if (!isStopped && checked.rest)
        checked.rest();
    if (!isStopped && checked.outcome.kind == Kind::DownloadStarted)
        watchProgress();
    if (client != self->mCurrentDownloadUpdateLogic())
        ReplacedClients::keep(client);
    const UpdateOutcome outcome = isStopped ? UpdateOutcome(Kind::Stopped) : checked.outcome;
    lastOutcome_.set(outcome);
    if (ZVUpdateProcDelegate *host = self->delegate())
        host->updateCheckEnded(outcome);
}

// Verifies a complete temporary file and, when somebody wants to hear of it, gives it its final
// name. What is verified is what gets the name: the file is locked meanwhile. One that another has
// locked, or that is not wanted any more, stays as it is, for the next check to deal with.
ZVUpdateProc::Private::Verified
ZVUpdateProc::Private::installVerified(LockedFile &file, const QString &diskImagePath,
                                       const CheckUpdateResponse *reply,
                                       const std::function<bool()> &stopped)
{
    if (file.state() == LockedFile::State::InUse)
        return Verified::NotNow;
    if (file.state() == LockedFile::State::NotOpen)
        return Verified::No; // The digest of no bytes, but not the file that was announced.
    if (!reply || !self->accepts(*reply))
        return stopped && stopped() ? Verified::NotNow : Verified::No;
    const auto isOffered = reply->announcesOpenFile(file.descriptor(), stopped);
    if (!isOffered)
        return Verified::NotNow;
    if (!*isOffered)
        return Verified::No;
    if (!self->delegate())
        return Verified::Unnamed;

    const LockedFile::Moved moved = file.moveTo(diskImagePath);
    if (moved == LockedFile::Moved::NotThisFile)
        return Verified::NotNow;
    if (moved == LockedFile::Moved::No && Files::isDirectory(diskImagePath))
        systemLog(QStringLiteral("A directory is in the place of the installer: ") + diskImagePath);
    // A host without keys looks for itself at what has the name.
    if (moved == LockedFile::Moved::No && reply->release() &&
        !reply->announces(diskImagePath, stopped).value_or(false))
        return Verified::Elsewhere;
    if (moved == LockedFile::Moved::No && !Files::isDirectory(diskImagePath))
        file.remove();
    file.close(); // A file that is open for writing cannot be started as a program.
    return Verified::Named;
}

bool ZVUpdateProc::Private::isUnwanted() const
{
    return *isEnding_ || UpdateLogicFunc::isStopRequestedHere();
}

// Tells of the progress of the download that has just been started.
void ZVUpdateProc::Private::watchProgress()
{
    if (!std::exchange(isProgressWatched_, true))
        lookSoon();
}

void ZVUpdateProc::Private::lookSoon() const
{
    QTimer::singleShot(betweenProgress, Qt::PreciseTimer,
                       whileHere([](ZVUpdateProc &controller) { controller.d_->tellProgress(); }));
}

void ZVUpdateProc::Private::tellProgress()
{
    const auto client = self->mCurrentDownloadUpdateLogic();
    isProgressWatched_ = client && !client->doCheckDownloadStop();
    if (!isProgressWatched_)
        return; // The end is told already.
    lookSoon();
    const auto progress = client->doGetDownloadProgress();
    ZVUpdateProcDelegate *host = self->delegate();
    if (host && progress.received > progress.resumedAt)
        host->updateDownloadProgressed(progress);
}

// The notification owns the controller until it has been made. Ownership is taken only to be passed
// on: the last owner must not let go on the thread of a download, where a window cannot be
// destroyed.
void ZVUpdateProc::Private::scheduleFileReady(const QString &path)
{
    if (!self->delegate())
        return;
    onMain([path, owned = self->weak_from_this().lock()](ZVUpdateProc &controller) {
        if (ZVUpdateProcDelegate *host = controller.delegate())
            host->UpdateFileReady(path);
    });
}

// A call that is made on the main thread, if the controller is still there by then: on any other
// thread only one that a shared pointer owns is destroyed.
std::function<void()>
ZVUpdateProc::Private::whileHere(std::function<void(ZVUpdateProc &)> call) const
{
    const auto owner = self->weak_from_this();
    const bool isOwned = std::weak_ptr<ZVUpdateProc>().owner_before(owner);
    return [controller = self, owner, isOwned, isEnding = isEnding_, call = std::move(call)] {
        const auto owned = owner.lock();
        if (isOwned ? owned != nullptr : !*isEnding)
            call(*controller);
    };
}

// A controller that is being destroyed, and waits for this very call, has nothing told any more.
void ZVUpdateProc::Private::onMain(std::function<void(ZVUpdateProc &)> call) const
{
    if (!*isEnding_)
        MainQueue::async(whileHere(std::move(call)));
}

void ZVUpdateProc::Private::debugLog(const QString &message) const
{
    if (mDebug_)
        systemLog(message);
}
