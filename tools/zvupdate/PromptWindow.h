#pragma once

#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/platform/Result.h>

#include <QCoreApplication>
#include <QString>

#include <functional>
#include <memory>

/// The library's prompt window, as far as the program has it: zvupdate-window does, and zvupdate,
/// which is to load nothing of a desktop, hands over to that.
namespace PromptWindow {

/// Whether this program has the window.
bool isHere();

/// Fails when something is known that prevents a window from being shown here.
ZVPlatform::Result<void> findDisplay();

/// The application object that the window needs.
std::unique_ptr<QCoreApplication> makeApplication(int &count, char **arguments);

/// Shows the window for the installer that the controller has announced. The window's end is told
/// by closed, which comes before the delegate hears of the choice. False when there is no window.
bool show(ZVUpdateProc &controller, const QString &productName,
          const std::function<void()> &closed);

} // namespace PromptWindow
