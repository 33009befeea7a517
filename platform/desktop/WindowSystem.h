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

    /// Shows a window. It gets the keyboard if the host has it and the user is not typing there;
    /// otherwise it only asks for attention. When it is shown for the first time it is made as
    /// high as what it holds, up to the size that it has, and fitted to the screen; shown again,
    /// it is where it was.
    static void show(QWidget *window);

    /// Takes a window off the screen, and destroys it when whatever it is doing has ended.
    static void discard(QWidget *window);

    /// Opens a file with the program that the user has chosen for files of its kind. False when
    /// there is none, as far as that can be known.
    static bool openFile(const QString &path);

    /// Shows where a file lies, in the file manager; without one that can point at a file, its
    /// folder.
    static void showInFileManager(const QString &path);
};

} // namespace ZVPlatform
