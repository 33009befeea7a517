// The smallest host: it is refused for want of a configuration, or of a check whose update the
// window could show. A file that points it to another service counts, unless the library was built
// to have none.

#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

namespace {

bool isOverridden()
{
    const QTemporaryDir home;
    QDir(home.path()).mkdir(QStringLiteral("Documents"));
    QFile file(home.filePath(QStringLiteral("Documents/ConsoleZVUpdate.mac")));
    if (!file.open(QIODevice::WriteOnly) || file.write("planted") < 0 || !file.flush())
        return false;
    qputenv("HOME", QFile::encodeName(home.path()));
    return UpdateLogicFunc().mBaseURL() == QLatin1String("planted");
}

} // namespace

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
#ifdef WITHOUT_OVERRIDE_FILE
    return asExpected && !isOverridden() ? 0 : 1;
#else
    return asExpected && isOverridden() ? 0 : 1;
#endif
}
