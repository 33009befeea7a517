#pragma once

#include <QString>

class QWidget;

namespace ZVPlatform {

/// What the window needs of the desktop. Main thread only, but for isAvailable().
class WindowSystem
{
public:
    /// Whether a window can be made here and now: the host has a QApplication, and this is its
    /// thread. Elsewhere Qt would end the process.
    static bool isAvailable();

    /// Shows a window. It gets the keyboard as new windows of this desktop do, except while the
    /// user is typing in another window of the host: then it only asks for attention.
    static void show(QWidget *window);

    /// Takes a window off the screen, and destroys it when whatever it is doing has ended.
    static void discard(QWidget *window);

    /// Opens a file with the program that the user has chosen for files of its kind.
    static void openFile(const QString &path);
};

} // namespace ZVPlatform
