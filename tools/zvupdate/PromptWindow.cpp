#include "PromptWindow.h"

#include "Keyboard.h"

#include <ZVUpdate/ui/UpdateInfoWindowController.h>

#include <QApplication>
#include <QDialog>
#include <QEvent>

#include <optional>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

/// Standard output, set aside for as long as this lives. A program that the window opens inherits
/// what it finds in that place, and would keep those waiting who read this one's to its end.
class OutputSetAside
{
public:
    OutputSetAside() : output_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
    {
        const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (output_ >= 0 && nothing >= 0)
            dup2(nothing, STDOUT_FILENO);
        close(nothing);
    }

    ~OutputSetAside()
    {
        if (output_ < 0)
            return;
        dup2(output_, STDOUT_FILENO);
        close(output_);
    }

    OutputSetAside(const OutputSetAside &) = delete;
    OutputSetAside &operator=(const OutputSetAside &) = delete;

private:
    const int output_; // Negative when the process has too many files open; then nothing changes.
};

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
        if (event->type() == QEvent::Hide && !event->spontaneous()) {
            output_.reset();
            ended_();
        }
        return false;
    }

private:
    const std::function<void()> ended_;
    std::optional<OutputSetAside> output_{std::in_place};
};

} // namespace

bool PromptWindow::isHere()
{
    return true;
}

// Qt ends the process when it finds no display, so that is looked at before.
Result<void> PromptWindow::findDisplay()
{
    for (const char *variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
        if (!qEnvironmentVariableIsEmpty(variable))
            return {};
    }
#ifdef __APPLE__
    return {};
#else
    return Failure{u"there is no display; start it in a desktop session, or set DISPLAY"_s};
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
    // The library takes the keyboard from nobody; where nobody has it, this program does.
    const bool isKeyboardFree = Keyboard::isFree();
    if (controller.showDefaultUpdateWindowWithProductName(productName) !=
        ZVUpdateProc::ZVWindowShown)
        return false;
    QDialog *window = controller.mUpdateInfoWindowCtrl()->window();
    if (!window)
        return false;
    new EndObserver(window, closed); // Owned by the window.
    if (isKeyboardFree)
        window->activateWindow();
    return true;
}
