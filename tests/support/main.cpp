#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <cstdio>

/// Runs the tests of one program. Neither the files nor the preferences nor the proxies of whoever
/// runs them take part: each run has a home of its own, and it is gone afterwards.
int main(int argc, char **argv)
{
    const QTemporaryDir home;
    if (!home.isValid()) {
        std::fprintf(stderr, "No temporary home for the tests: %s. Make %s writable.\n",
                     qPrintable(home.errorString()), qPrintable(QDir::tempPath()));
        return 2;
    }
    qputenv("HOME", QFile::encodeName(home.path()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral(".config"))));
    for (const char *proxy : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        qunsetenv(proxy);

    QCoreApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("ZVUpdateTests"));
    QCoreApplication::setApplicationName(QStringLiteral("ZVUpdateTests"));
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
