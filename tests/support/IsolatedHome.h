#pragma once

#include "TestFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <ctime>

/// A home directory for one run of a test program, which is gone afterwards: neither the files nor
/// the preferences nor the proxies nor the time zone of whoever runs the tests take part, nor does
/// their desktop: here there is a program for every kind of file, unless the file "programs" has
/// others; "asked" has the kinds that were asked for. Made before the application object.
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
        QCoreApplication::setOrganizationName(QStringLiteral("ZVUpdateTests"));
        QCoreApplication::setApplicationName(QStringLiteral("ZVUpdateTests"));
        for (const char *proxy : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                  "ALL_PROXY", "no_proxy", "NO_PROXY"})
            qunsetenv(proxy);
        const QString asker = home_.filePath(QStringLiteral("xdg-mime"));
        writeFile(asker, R"(#!/bin/sh
cd ~ && echo "$3" >>asked
[ "$2" = filetype ] || cat programs 2>/dev/null || echo viewer.desktop
)");
        QFile::setPermissions(asker, QFile::ReadOwner | QFile::ExeOwner);
        qputenv("PATH", QFile::encodeName(home_.path()) + ':' + qgetenv("PATH"));
        // Without this the C library looks at its file for each conversion, under a lock of its own
        // that thread sanitizer does not see.
        qputenv("TZ", "UTC0");
        tzset();
    }

    QString path() const { return home_.path(); }

private:
    const QTemporaryDir home_;
};
