#include "UpdateCheck.h"

#include "../commands/Command.h"
#include "../commands/Console.h"
#include "../commands/ProgressLine.h"
#include "PromptWindow.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>

#include <chrono>

using namespace Qt::StringLiterals;

using Kind = UpdateOutcome::Kind;

namespace {

// Progress is reported at most ten times a second.
constexpr qint64 shortestReportInterval = 100; // Milliseconds.
constexpr std::chrono::milliseconds lookInterval(101);

QString stoppedBy(const QString &signal)
{
    return u"The check was stopped by %1."_s.arg(signal);
}

} // namespace

UpdateCheck::UpdateCheck(const CheckSettings &settings, CheckReporter &reporter,
                         const Console &console, StopSignals &signals)
    : settings_(settings),
      reporter_(reporter),
      console_(console),
      controller_(ZVUpdateProc::getSharedZVUpdateProc()),
      signals_(signals)
{
    signals_.setLastWords(reporter.lastWordsDescriptor(), [&reporter](const QString &signal) {
        return reporter.lastWords({Kind::Stopped, stoppedBy(signal),
                                   u"What has been received is kept for the next time."_s});
    });
    controller_->setProductID(settings_.productID, settings_.productVersion, settings_.directory);
    controller_->setDebugMode(settings_.debug);
    if (!settings_.releaseKeys.isEmpty()) // They have been looked at.
        static_cast<void>(controller_->setReleaseKeys(settings_.releaseKeys));
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setInterval(lookInterval);
    timer_.callOnTimeout([this] { look(); });
}

UpdateCheck::~UpdateCheck()
{
    retire();
    ZVUpdateProc::releaseSharedZVUpdateProc();
    controller_.reset();
}

int UpdateCheck::run()
{
    reporter_.asking(settings_);
    using Reason = ZVUpdateProc::CheckReason;
    controller_->startCheck(settings_.isAskedFor ? Reason::AskedByUser : Reason::Scheduled,
                            settings_.withDelegate ? this : nullptr);
    while (controller_->isChecking())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    if (!settings_.withDelegate) // And nobody who was told.
        updateCheckEnded(*controller_->lastOutcome());
    return isOver_ ? status_ : QCoreApplication::exec();
}

void UpdateCheck::updateCheckEnded(const UpdateOutcome &outcome)
{
    // A download that cannot be written is told as one that has begun and failed.
    const bool isUnwritable =
        outcome.kind == Kind::DirectoryNotWritable || outcome.kind == Kind::DiskFull;
    const auto offered = files();
    const CheckAnswer answer{
        outcome,
        isUnwritable ? ZVUpdateProc::ZVDownloadStarted : ZVUpdateProc::resultFor(outcome.kind),
        controller_->mLastCheckUpdateResponse(), offered ? offered->temporaryPath : QString()};
    if (!answer.isOffer())
        signals_.dropLastWords(); // Nothing follows.
    reporter_.answered(answer);
    if (isUnwritable)
        return fail(explained(outcome));
    if (!answer.isOffer())
        return finish(static_cast<int>(answer.result));
    takeSignals();
    look();
}

void UpdateCheck::UpdateFileReady(const QString &path)
{
    if (stop_ || isOver_)
        return;
    reportProgress();
    signals_.leave(); // Digesting may take long.
    if (const auto failure = unfit(path))
        return fail(*failure);
    ready(path);
    if (settings_.productName)
        return showWindow();
    finish(Success);
}

// Of a download the client tells; this is about the installer behind the window.
void UpdateCheck::updateDownloadFailed(const UpdateOutcome &outcome)
{
    if (isWindowOpen_ && !isOver_)
        fail({outcome.kind, u"The installer was exchanged after it had been verified."_s,
              u"It has been removed; the same command fetches it anew."_s});
}

bool UpdateCheck::installUpdate(const QString &path, ZVPlatform::InstallerKind /*kind*/)
{
    if (!settings_.onUpdate)
        return false;
    QProcess shell;
    shell.setProgram(u"/bin/sh"_s);
    shell.setArguments({u"-c"_s, *settings_.onUpdate, u"sh"_s, path});
    shell.setStandardOutputFile(QProcess::nullDevice()); // Whoever reads ours waits for its end.
    return shell.startDetached();
}

void UpdateCheck::takeSignals()
{
    signals_.take([this](int signal) {
        stop({128 + signal, stoppedBy(StopSignals::name(signal))});
    });
}

void UpdateCheck::stop(const Stop &stop)
{
    if (!stop_)
        stop_ = stop;
    if (isWindowOpen_)
        finish(stop_->status); // Nothing is left to be stopped but the program.
    else if (timer_.isActive())
        look();
}

// Looks how the download is getting on. A stop is asked for again each time, since a download that
// has not begun its transfer yet cannot be stopped.
void UpdateCheck::look()
{
    const auto client = controller_->mCurrentDownloadUpdateLogic();
    reportProgress();
    if (console_.failure())
        stop_ = stop_.value_or(Stop{Failed, {}});
    if (stop_)
        client->doStopDownload();
    if (!client->doCheckDownloadStop())
        return timer_.start();

    // When the end of a download can be seen, the notification of its success has been scheduled:
    // what is scheduled now comes after it.
    timer_.stop();
    QMetaObject::invokeMethod(
        &timer_, [this] { downloadEnded(); }, Qt::QueuedConnection);
}

void UpdateCheck::reportProgress()
{
    const auto progress = controller_->mCurrentDownloadUpdateLogic()->doGetDownloadProgress();
    const bool hasBegun = progress.total || progress.received > progress.resumedAt;
    const bool isDue =
        !sinceProgress_.isValid() || sinceProgress_.hasExpired(shortestReportInterval);
    if (!hasBegun || !isDue)
        return;
    sinceProgress_.start();
    reporter_.progressed(progress);
}

void UpdateCheck::downloadEnded()
{
    if (isOver_ || isWindowOpen_)
        return;
    if (stop_) {
        if (!stop_->reason.isEmpty())
            tellFailure(interrupted(Kind::Stopped, stop_->reason));
        return finish(stop_->status);
    }
    reportProgress();
    if (const auto failure = controller_->mCurrentDownloadUpdateLogic()->lastFailure())
        return fail(explained(*failure));
    signals_.leave(); // Digesting may take long.
    const auto path = verifiedFile();
    if (!path)
        return fail(
            interrupted(Kind::WrongDigest, u"The file is not there any more, or was changed."_s));
    ready(*path);
    finish(Success);
}

void UpdateCheck::ready(const QString &path)
{
    takeSignals();
    signals_.dropLastWords();
    reporter_.ready(path);
}

void UpdateCheck::showWindow()
{
    isWindowOpen_ = true;
    timer_.stop();
    // The window goes before the choice is told, so that is waited for.
    const bool isShown = PromptWindow::show(*controller_, *settings_.productName, [this] {
        QMetaObject::invokeMethod(
            &timer_, [this] { windowEnded(); }, Qt::QueuedConnection);
    });
    if (!isShown)
        fail({Kind::InstallerReady, u"The window could not be shown."_s,
              u"The installer is ready; open it by hand, or leave out --show-window."_s});
}

void UpdateCheck::windowEnded()
{
    if (isOver_)
        return;
    reporter_.windowEnded(windowAction_);
    finish(Success);
}

void UpdateCheck::tellFailure(const CheckFailure &failure)
{
    signals_.dropLastWords();
    reporter_.failed(failure);
}

void UpdateCheck::fail(const CheckFailure &failure)
{
    tellFailure(failure);
    finish(Failed);
}

void UpdateCheck::finish(int status)
{
    isOver_ = true;
    status_ = status;
    timer_.stop();
    QCoreApplication::exit(status);
}

CheckFailure UpdateCheck::interrupted(Kind kind, const QString &reason) const
{
    const auto offered = files();
    const qint64 kept = offered ? QFileInfo(offered->temporaryPath).size() : 0;
    if (kept == 0)
        return {kind, reason, u"Try the same command again later."_s};
    return {
        kind, reason,
        u"The same command goes on at %1."_s.arg(ProgressLine::size(static_cast<uint64_t>(kept)))};
}

CheckFailure UpdateCheck::explained(const UpdateOutcome &failure) const
{
    const auto total = controller_->mCurrentDownloadUpdateLogic()->doGetDownloadProgress().total;
    if (failure.kind == Kind::DirectoryNotWritable)
        return {failure.kind, u"%1 cannot be written to."_s.arg(settings_.directory),
                u"Make it a writable directory, or choose another --directory."_s};
    if (failure.kind == Kind::DiskFull)
        return {failure.kind, u"There is not enough room in %1."_s.arg(settings_.directory),
                u"Make room%1, or choose another --directory."_s.arg(
                    total ? u" for "_s + ProgressLine::size(*total) : QString())};
    if (failure.kind == Kind::WrongDigest || failure.kind == Kind::WrongSize)
        return {failure.kind, UpdateOutcome(failure.kind).message,
                u"The same command fetches it anew; if that does not help, the service announces "
                "another file than it hands out."_s};
    return interrupted(failure.kind, failure.message);
}

// Why what has the installer's name is not to be told of, if so. The library says neither that the
// file could not get its name nor that somebody else's has it.
std::optional<CheckFailure> UpdateCheck::unfit(const QString &path) const
{
    if (!QFileInfo(path).isFile())
        return CheckFailure{Kind::DirectoryNotWritable,
                            u"The installer could not be put at %1."_s.arg(path),
                            u"Remove what is in its way, or choose another --directory."_s};
    if (!isAsAnnounced(path))
        return CheckFailure{Kind::WrongDigest,
                            u"What lies at %1 is not the installer announced."_s.arg(path),
                            u"Remove it, or choose a --directory that nobody else writes to."_s};
    return std::nullopt;
}

// The names of what the service offers; absent when it offers nothing.
std::optional<UpdateFiles> UpdateCheck::files() const
{
    const auto reply = controller_->mLastCheckUpdateResponse();
    const auto version = reply ? reply->ZVUpdateVersion() : std::nullopt;
    return version ? UpdateFiles::named(settings_.directory, settings_.productID, *version)
                   : std::nullopt;
}

// Without a delegate nobody is told that the file is verified.
std::optional<QString> UpdateCheck::verifiedFile() const
{
    const auto offered = files();
    if (settings_.withDelegate || !offered)
        return std::nullopt;
    for (const QString &path : {offered->diskImagePath, offered->temporaryPath}) {
        if (isAsAnnounced(path))
            return path;
    }
    return std::nullopt;
}

bool UpdateCheck::isAsAnnounced(const QString &path) const
{
    return QFileInfo(path).isFile() &&
           controller_->mLastCheckUpdateResponse()->announces(path).value_or(false);
}
