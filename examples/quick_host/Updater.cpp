#include "Updater.h"

#include <QDesktopServices>
#include <QDir>
#include <QStandardPaths>
#include <QUrl>

// The identifier under which the update service knows this product, and the version that runs.
static const QString productID = QStringLiteral("SampleApp");
static const QString productVersion = QStringLiteral("2100");

Updater::Updater() : controller_(ZVUpdateProc::getSharedZVUpdateProc())
{
    const QString data = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    controller_->setProductID(productID, productVersion,
                              QDir(data).filePath(QStringLiteral("updates")));
}

void Updater::check(bool askedByUser)
{
    using Reason = ZVUpdateProc::CheckReason;
    progress_ = 0;
    if (controller_->startCheck(askedByUser ? Reason::AskedByUser : Reason::Scheduled, this))
        show(tr("Checking for updates…"), true);
}

void Updater::updateCheckEnded(const UpdateOutcome &outcome)
{
    using Kind = UpdateOutcome::Kind;
    switch (outcome.kind) {
    case Kind::DownloadStarted:
        return show(tr("Downloading an update…"), true);
    case Kind::NothingNewer:
        return show(tr("You are up to date."), false);
    case Kind::InstallerReady: // UpdateFileReady() follows.
    case Kind::SwitchedOff:    // Nobody has asked.
    case Kind::NotYet:
        return show({}, false);
    default:
        return show(outcome.message, false);
    }
}

void Updater::updateDownloadProgressed(const UpdateDownloadProgress &progress)
{
    if (progress.total.value_or(0) > 0)
        progress_ = double(progress.received) / double(*progress.total);
    Q_EMIT changed();
}

void Updater::updateDownloadFailed(const UpdateOutcome &outcome)
{
    show(outcome.message, false); // The next check resumes it.
}

bool Updater::install()
{
    // By its own name no desktop but one would know what it is.
    installer_ = ZVPlatform::installerLink(installer_);
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(installer_)))
        return true;
    show(tr("Please open the installer yourself: %1").arg(installer_), false);
    return false;
}

void Updater::neverAskAgain()
{
    UpdatePreferences::setAutomaticUpdating(false);
    UpdatePreferences::synchronise();
}

void Updater::UpdateFileReady(const QString &path)
{
    const auto reply = controller_->mLastCheckUpdateResponse();
    version_ = reply->ZVUpdateVersion().value_or(QString());
    notes_ = reply->getUpdateMessageWithLang(controller_->getDefaultLangID()).value_or(QString());
    installer_ = path;
    show(tr("An update is ready to install."), false);
    Q_EMIT ready();
}

void Updater::show(const QString &status, bool isBusy)
{
    status_ = status;
    isBusy_ = isBusy;
    Q_EMIT changed();
}
