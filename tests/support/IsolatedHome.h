#pragma once

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

/// A home directory for one run of a test program, which is gone afterwards: neither the files nor
/// the preferences nor the proxies of whoever runs the tests take part. Made before the application
/// object.
class IsolatedHome
{
public:
    IsolatedHome()
    {
        if (!home_.isValid())
            qFatal("No temporary home for the tests: %s. Make %s writable.",
                   qPrintable(home_.errorString()), qPrintable(QDir::tempPath()));
        qputenv("HOME", QFile::encodeName(home_.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home_.filePath(QStringLiteral(".config"))));
        for (const char *proxy :
             {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
            qunsetenv(proxy);
    }

    QString path() const { return home_.path(); }

private:
    const QTemporaryDir home_;
};
