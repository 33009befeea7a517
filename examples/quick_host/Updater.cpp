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
    progressTimer_.setInterval(250);
    connect(&progressTimer_, &QTimer::timeout, this, [this] {
        showProgress();
        Q_EMIT changed();
    });
}

void Updater::check()
{
    if (isDownloading())
        return;
    switch (controller_->updateWithDelegate(this)) {
    case ZVUpdateProc::ZVDownloadStarted:
        status_ = tr("Downloading an update…");
        progress_ = 0;
        progressTimer_.start();
        break;
    case ZVUpdateProc::ZVInstallerReady:
        break; // UpdateFileReady() follows.
    case ZVUpdateProc::ZVSkipped:
        status_ = tr("Automatic updating is switched off.");
        break;
    default:
        status_ = tr("No update was found.");
        break;
    }
    Q_EMIT changed();
}

bool Updater::install()
{
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(installer_)))
        return true;
    status_ = tr("Please open the installer yourself: %1").arg(installer_);
    Q_EMIT changed();
    return false;
}

void Updater::neverAskAgain()
{
    UpdatePreferences::setAutomaticUpdating(false);
    UpdatePreferences::synchronise();
}

void Updater::UpdateFileReady(const QString &path)
{
    progressTimer_.stop();
    const auto reply = controller_->mLastCheckUpdateResponse();
    version_ = reply->ZVUpdateVersion().value_or(QString());
    notes_ = reply->getUpdateMessageWithLang(controller_->getDefaultLangID()).value_or(QString());
    installer_ = path;
    status_ = tr("An update is ready to install.");
    Q_EMIT changed();
    Q_EMIT ready();
}

void Updater::showProgress()
{
    const auto client = controller_->mCurrentDownloadUpdateLogic();
    const UpdateDownloadProgress progress = client->doGetDownloadProgress();
    if (client->doCheckDownloadStop()) {
        // A failed download is no reason to bother the user: the next check resumes it.
        progressTimer_.stop();
        status_.clear();
    } else if (progress.total.value_or(0) > 0) {
        progress_ = double(progress.received) / double(*progress.total);
    }
}
