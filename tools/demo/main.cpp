// Checks for an update, shows the library's prompt and prints what was chosen: "update", "cancel"
// or "closed".

#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/ui/UpdateInfoWindowController.h>

#include <QApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QPushButton>
#include <QTimer>
#include <QUrl>

#include <cstdio>

/// The demo's host with a window: shows the library's prompt and knows what was chosen. The demo's
/// installer is nothing that a desktop could open, so the host stands in for the desktop and prints
/// which file it was asked to open. With a file name for a picture it waits for nobody, but saves
/// the window there and clicks "Update" itself.
class DemoHost : public QObject, public ZVUpdateProcDelegate
{
    Q_OBJECT

public:
    explicit DemoHost(const QString &picture) : picture_(picture)
    {
        QDesktopServices::setUrlHandler(QStringLiteral("file"), this, "open");
    }

    Q_INVOKABLE void open(const QUrl &url) { std::puts(qPrintable(url.toLocalFile())); }

    void UpdateFileReady(const QString & /*path*/) override
    {
        const auto updater = ZVUpdateProc::getSharedZVUpdateProc();
        updater->showDefaultUpdateWindowWithProductName(QStringLiteral("Sample App"));
        const auto prompt = updater->mUpdateInfoWindowCtrl();
        QDialog *window = prompt ? prompt->window() : nullptr;
        if (!window)
            return QCoreApplication::exit(1);
        // The window goes before the choice is told.
        QObject::connect(window, &QDialog::finished, qApp, QCoreApplication::quit,
                         Qt::QueuedConnection);
        if (!picture_.isEmpty())
            QTimer::singleShot(0, window, [this, window, prompt] {
                wasSaved_ = window->grab().save(picture_);
                prompt->updateButton()->click();
            });
    }

    void windowClosedUpdateAction() override { choice_ = "update"; }
    void windowClosedCancelAction() override { choice_ = "cancel"; }

    const char *choice() const { return choice_; }
    bool wasSaved() const { return wasSaved_; }

private:
    const QString picture_;
    const char *choice_ = "closed";
    bool wasSaved_ = false;
};

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("ZVUpdate"));
    QApplication::setApplicationName(QStringLiteral("zvupdate"));
    QApplication::setQuitOnLastWindowClosed(false);
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() < 4) {
        static_cast<void>(
            std::fputs("usage: zvupdate-demo-host PRODUCT VERSION DIRECTORY [PICTURE]\n", stderr));
        return 2;
    }

    DemoHost host(arguments.value(4));
    const auto updater = ZVUpdateProc::getSharedZVUpdateProc();
    updater->setProductID(arguments[1], arguments[2], arguments[3]);
    if (updater->updateWithDelegate(&host) != ZVUpdateProc::ZVInstallerReady)
        return 1;
    const int status = QApplication::exec();
    if (status == 0 && (arguments.size() < 5 || host.wasSaved()))
        std::puts(host.choice());
    return status;
}

#include "main.moc"
