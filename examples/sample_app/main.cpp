// A host application of the size of a page: a menu with "Check for Updates…" and the setting
// "Automatically check for updates", how a check or its download is getting on in the status bar,
// the library's own window when an installer is ready, and the last step: it is replaced by the new
// version, and started again. Copy what you need.

#include <ZVUpdate/ZVUpdate.h>

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QIcon>
#include <QLocale>
#include <QMainWindow>
#include <QMenuBar>
#include <QProcess>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTextEdit>
#include <QTimer>

// The identifier under which the update service knows this product, and the version that runs.
static const QString productID = QStringLiteral("SampleApp");
static const QString productVersion = QStringLiteral("2100");
static const QString productName = QStringLiteral("Sample App");
// By which a version knows that it has been started after an update.
static const QString restarted = QStringLiteral("--updated");

class MainWindow : public QMainWindow, public ZVUpdateProcDelegate
{
public:
    MainWindow() : updater_(ZVUpdateProc::getSharedZVUpdateProc())
    {
        const QString folder =
            QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
        updater_->setProductID(productID, productVersion,
                               QDir(folder).filePath(QStringLiteral("updates")));
        setWindowTitle(productName);
        setCentralWidget(new QTextEdit);
        makeMenus();

        // Once the window is up. With the setting off, the check ends at once and asks nobody. Not
        // after an update: if that did not last, the same would be offered at once again.
        if (!QApplication::arguments().contains(restarted))
            QTimer::singleShot(0, this, [this] { check(ZVUpdateProc::CheckReason::Scheduled); });
    }

    // ZVUpdateProcDelegate, always on the main thread:

    void updateCheckEnded(const UpdateOutcome &outcome) override
    {
        using Kind = UpdateOutcome::Kind;
        switch (outcome.kind) {
        case Kind::NothingNewer:
            statusBar()->showMessage(tr("You are up to date."));
            break;
        case Kind::DownloadStarted:
        case Kind::InstallerReady: // UpdateFileReady() follows.
        case Kind::SwitchedOff:    // Nobody has asked.
        case Kind::NotYet:
            statusBar()->clearMessage();
            break;
        default:
            statusBar()->showMessage(outcome.message);
            break;
        }
    }

    void updateDownloadProgressed(const UpdateDownloadProgress &progress) override
    {
        const QLocale locale;
        const QString rate = locale.formattedDataSize(static_cast<qint64>(progress.bytesPerSecond));
        if (progress.total.value_or(0) > 0)
            statusBar()->showMessage(tr("Downloading an update: %1 %, %2/s")
                                         .arg(100 * progress.received / *progress.total)
                                         .arg(rate));
    }

    void updateDownloadFailed(const UpdateOutcome &outcome) override
    {
        statusBar()->showMessage(outcome.message); // The next check resumes the download.
    }

    void UpdateFileReady(const QString &) override
    {
        statusBar()->showMessage(tr("An update is ready to install."));
        updater_->showDefaultUpdateWindowWithProductName(productName);
    }

    bool installUpdate(const QString &path, ZVPlatform::InstallerKind kind) override
    {
        const QStringList target = replacedBy(kind);
        if (target.isEmpty())
            return false;
        auto *apply = new QProcess; // Without an owner, as it goes on when this application ends.
        // Its first line says that the new version is on the disk and waits for this one's end.
        connect(apply, &QProcess::readyReadStandardOutput, this, &QWidget::close);
        connect(apply, &QProcess::finished, this, [this, apply] {
            statusBar()->showMessage(QString::fromLocal8Bit(apply->readAllStandardError()));
            apply->deleteLater();
        });
        apply->start(QStringLiteral("zvupdate-apply"),
                     QStringList{QStringLiteral("--installer"), path, QStringLiteral("--wait-for"),
                                 QString::number(QApplication::applicationPid())} +
                         target + QStringList{QStringLiteral("--restart"), restarted});
        isReplaced_ = apply->waitForStarted();
        return isReplaced_;
    }

    void windowClosedUpdateAction() override
    {
        if (isReplaced_)
            statusBar()->showMessage(tr("Installing the update…"));
        else
            close(); // The installer is open; it wants to replace this application.
    }

    void windowClosedCancelAction() override
    {
        // The user may just have chosen not to be asked again.
        automatic_->setChecked(UpdatePreferences::automaticUpdating().value_or(true));
    }

private:
    // What an installer of a kind replaces: this one file, or the folder that the program lies in.
    // Nothing where it is not ours to install, as a package, which the desktop opens.
    static QStringList replacedBy(ZVPlatform::InstallerKind kind)
    {
        using Kind = ZVPlatform::InstallerKind;
        const QFileInfo program(QApplication::applicationFilePath());
        switch (kind) {
        case Kind::AppImage:
        case Kind::Executable:
        case Kind::Script:
            return {QStringLiteral("--replace"),
                    qEnvironmentVariable("APPIMAGE", program.filePath())};
        case Kind::Zip:
        case Kind::Tar:
        case Kind::TarGzip:
        case Kind::TarXz:
        case Kind::TarZstd:
            return {QStringLiteral("--replace"), program.path(), QStringLiteral("--program"),
                    program.fileName()};
        default:
            return {};
        }
    }

    void makeMenus()
    {
        QMenu *file = menuBar()->addMenu(tr("&File"));
        file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);
        QMenu *help = menuBar()->addMenu(tr("&Help"));
        help->addAction(tr("Check for &Updates…"), this,
                        [this] { check(ZVUpdateProc::CheckReason::AskedByUser); });

        automatic_ = help->addAction(tr("&Automatically check for updates"));
        automatic_->setCheckable(true);
        automatic_->setChecked(UpdatePreferences::automaticUpdating().value_or(true));
        connect(automatic_, &QAction::toggled, this, [](bool on) {
            UpdatePreferences::setAutomaticUpdating(on);
            UpdatePreferences::synchronise();
        });
    }

    void check(ZVUpdateProc::CheckReason reason)
    {
        const auto client = updater_->mCurrentDownloadUpdateLogic();
        if (client && !client->doCheckDownloadStop())
            return; // A download is running; a second one would want the same file.
        // False when a check is running already, which will tell its outcome.
        if (updater_->startCheck(reason, this))
            statusBar()->showMessage(tr("Checking for updates…"));
    }

    const std::shared_ptr<ZVUpdateProc> updater_;
    QAction *automatic_ = nullptr;
    bool isReplaced_ = false;
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
