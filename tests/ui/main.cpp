#include "../support/IsolatedHome.h"
#include "../support/TestFiles.h"

#include <QApplication>

#include <gmock/gmock.h>

namespace {

// A desktop that opens each kind of file with what the file "programs" says, and notes down in the
// file "asked" what kinds it was asked for.
void makeDesktop(const QString &directory)
{
    QDir(directory).mkpath(QStringLiteral("."));
    const QString asker = directory + QStringLiteral("/xdg-mime");
    writeFile(asker, "#!/bin/sh\necho \"$3\" >>\"${0%/*}/asked\"; cat \"${0%/*}/programs\"");
    QFile::setPermissions(asker, QFile::ReadOwner | QFile::ExeOwner);
    writeFile(directory + QStringLiteral("/programs"), "viewer.desktop\n");
    qputenv("PATH", QFile::encodeName(directory) + ':' + qgetenv("PATH"));
}

} // namespace

/// Runs the tests with real widgets, drawn off-screen, in a home of their own. They are in English,
/// and see neither a desktop but this one nor a system bus but the one that a test makes.
int main(int argc, char **argv)
{
    const IsolatedHome home;
    makeDesktop(home.path() + QStringLiteral("/desktop"));
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(home.path()));
    qputenv("LC_ALL", "C.UTF-8");
    qunsetenv("LANGUAGE");

    QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("ZVUpdateTests"));
    QCoreApplication::setApplicationName(QStringLiteral("ZVUpdateTests"));
    QApplication::setQuitOnLastWindowClosed(false);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
