// A host application with a Qt Quick interface, which shows a prompt of its own in the place of the
// library's window: Updater brings the library to QML, and Main.qml has all that is seen. Copy what
// you need.

#include <ZVUpdate/ZVUpdate.h>

#include <QGuiApplication>
#include <QQmlApplicationEngine>

int main(int argc, char **argv)
{
    QGuiApplication application(argc, argv);
    // They also say where preferences and update files are kept.
    QGuiApplication::setOrganizationName(QStringLiteral("Example"));
    QGuiApplication::setApplicationName(QStringLiteral("SampleApp"));

    int status = 1;
    {
        const QQmlApplicationEngine engine(QUrl(QStringLiteral("qrc:/QuickHost/Main.qml")));
        if (!engine.rootObjects().isEmpty())
            status = QGuiApplication::exec();
    }
    // Stops a download that is still running; the next run resumes it.
    ZVUpdateProc::releaseSharedZVUpdateProc();
    return status;
}
