// A host application of the size of a page: a menu with "Check for Updates…" and the setting
// "Automatically check for updates", the download's progress in the status bar, and the library's
// own window when an installer is ready. Copy what you need.

#include <ZVUpdate/ZVUpdate.h>

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QMainWindow>
#include <QMenuBar>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTextEdit>
#include <QTimer>

// The identifier under which the update service knows this product, and the version that runs.
static const QString productID = QStringLiteral("SampleApp");
static const QString productVersion = QStringLiteral("2100");
static const QString productName = QStringLiteral("Sample App");

class MainWindow : public QMainWindow, public ZVUpdateProcDelegate
{
public:
    MainWindow() : updater_(ZVUpdateProc::getSharedZVUpdateProc())
    {
        const QString data = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
        updater_->setProductID(productID, productVersion,
                               QDir(data).filePath(QStringLiteral("updates")));
        setWindowTitle(productName);
        setCentralWidget(new QTextEdit);
        makeMenus();

        progressTimer_.setInterval(250);
        connect(&progressTimer_, &QTimer::timeout, this, [this] { showProgress(); });

        // Once the window is up. With the setting off, the check ends at once and asks nobody.
        QTimer::singleShot(0, this, [this] { checkForUpdates(); });
    }

    // ZVUpdateProcDelegate, always on the main thread:

    void UpdateFileReady(const QString &) override
    {
        progressTimer_.stop();
        statusBar()->showMessage(tr("An update is ready to install."));
        updater_->showDefaultUpdateWindowWithProductName(productName);
    }

    void windowClosedUpdateAction() override
    {
        close(); // The installer is open; it wants to replace this application.
    }

    void windowClosedCancelAction() override
    {
        // The user may just have chosen not to be asked again.
        automatic_->setChecked(UpdatePreferences::automaticUpdating().value_or(true));
    }

private:
    void makeMenus()
    {
        QMenu *file = menuBar()->addMenu(tr("&File"));
        file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);
        QMenu *help = menuBar()->addMenu(tr("&Help"));
        help->addAction(tr("Check for &Updates…"), this, [this] { checkForUpdates(); });

        automatic_ = help->addAction(tr("&Automatically check for updates"));
        automatic_->setCheckable(true);
        automatic_->setChecked(UpdatePreferences::automaticUpdating().value_or(true));
        connect(automatic_, &QAction::toggled, this, [](bool on) {
            UpdatePreferences::setAutomaticUpdating(on);
            UpdatePreferences::synchronise();
        });
    }

    void checkForUpdates()
    {
        if (progressTimer_.isActive())
            return; // The download of an earlier check is still running.
        QApplication::setOverrideCursor(Qt::WaitCursor);
        const int64_t result = updater_->updateWithDelegate(this);
        QApplication::restoreOverrideCursor();

        switch (result) {
        case ZVUpdateProc::ZVDownloadStarted:
            progressTimer_.start();
            break;
        case ZVUpdateProc::ZVInstallerReady:
            break; // UpdateFileReady() follows.
        case ZVUpdateProc::ZVSkipped:
            statusBar()->showMessage(tr("Automatic updating is switched off."));
            break;
        default:
            statusBar()->showMessage(tr("No update was found."));
            break;
        }
    }

    void showProgress()
    {
        const auto client = updater_->mCurrentDownloadUpdateLogic();
        const UpdateDownloadProgress progress = client->doGetDownloadProgress();
        if (client->doCheckDownloadStop()) {
            // A failed download is no reason to bother the user: the next check resumes it.
            progressTimer_.stop();
            statusBar()->clearMessage();
        } else if (progress.total.value_or(0) > 0) {
            const auto percent = 100 * progress.received / *progress.total;
            statusBar()->showMessage(tr("Downloading an update: %1 %").arg(percent));
        }
    }

    const std::shared_ptr<ZVUpdateProc> updater_;
    QTimer progressTimer_;
    QAction *automatic_ = nullptr;
};

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    // They also say where preferences and update files are kept.
    QApplication::setOrganizationName(QStringLiteral("Example"));
    QApplication::setApplicationName(QStringLiteral("SampleApp"));
    // By which the desktop finds the icon.
    QApplication::setDesktopFileName(QStringLiteral("sample_app"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("sample_app")));

    int status = 0;
    {
        MainWindow window;
        window.resize(640, 400);
        window.show();
        status = application.exec();
    }
    // Stops a download that is still running; the next run resumes it.
    ZVUpdateProc::releaseSharedZVUpdateProc();
    return status;
}
