#include "PromptWindow.h"

#include <ZVUpdate/ui/UpdateInfoWindowController.h>

#include <QApplication>
#include <QDialog>
#include <QEvent>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// Sees a window go, in whichever way that happens.
class EndObserver : public QObject
{
public:
    EndObserver(QDialog *window, std::function<void()> ended)
        : QObject(window), ended_(std::move(ended))
    {
        window->installEventFilter(this);
    }

    bool eventFilter(QObject * /*window*/, QEvent *event) override
    {
        if (event->type() == QEvent::Hide && !event->spontaneous())
            ended_();
        return false;
    }

private:
    const std::function<void()> ended_;
};

} // namespace

bool PromptWindow::isHere()
{
    return true;
}

// Qt ends the process when it finds no display, so that is looked at before.
std::optional<QString> PromptWindow::obstacle()
{
    for (const char *variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
        if (!qEnvironmentVariableIsEmpty(variable))
            return std::nullopt;
    }
#ifdef __APPLE__
    return std::nullopt;
#else
    return u"there is no display; start it in a desktop session, or set DISPLAY"_s;
#endif
}

std::unique_ptr<QCoreApplication> PromptWindow::makeApplication(int &count, char **arguments)
{
    auto application = std::make_unique<QApplication>(count, arguments);
    // The check decides when the program ends.
    QApplication::setQuitOnLastWindowClosed(false);
    return application;
}

bool PromptWindow::show(ZVUpdateProc &controller, const QString &productName,
                        const std::function<void()> &closed)
{
    if (controller.showDefaultUpdateWindowWithProductName(productName) !=
        ZVUpdateProc::ZVWindowShown)
        return false;
    QDialog *window = controller.mUpdateInfoWindowCtrl()->window();
    if (!window)
        return false;
    new EndObserver(window, closed); // Owned by the window.
    return true;
}
