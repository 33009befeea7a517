// The smallest host: it is refused for want of a configuration, or of a check whose update the
// window could show.

#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const auto updater = ZVUpdateProc::getSharedZVUpdateProc();
#ifdef WITH_WINDOW
    const int64_t result = updater->showDefaultUpdateWindowWithProductName(QString());
    const bool asExpected = result == ZVUpdateProc::ZVNoUpdate;
#else
    const int64_t result = updater->updateWithDelegate(nullptr);
    const bool asExpected = result == ZVUpdateProc::ZVNotConfigured;
#endif
    std::printf("ZVUpdate %.1f answers %d\n", ZVUpdateVersionNumber, static_cast<int>(result));
    return asExpected ? 0 : 1;
}
