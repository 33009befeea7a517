#include "../support/IsolatedHome.h"

#include <QApplication>

#include <gmock/gmock.h>

/// Runs the tests with real widgets, drawn off-screen, in a home of their own. They are in English,
/// and see no system bus but the one that a test makes.
int main(int argc, char **argv)
{
    const IsolatedHome home;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(home.path()));
    qputenv("LC_ALL", "C.UTF-8");
    qunsetenv("LANGUAGE");

    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
