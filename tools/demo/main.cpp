// Checks for an update, shows the library's prompt and prints what was chosen: "update", "cancel"
// or "closed".

#include "DemoHost.h"

#include <QApplication>

#include <cstdio>

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
