#pragma once

#include "../../platform/Mutex.h"

#include <QByteArrayView>
#include <QStringList>
#include <QtGlobal>

#include <cstdio>

/// Catches what is logged in the category "zvupdate" for as long as it lives; other messages pass.
/// One at a time.
class LogCapture
{
public:
    LogCapture()
    {
        {
            const ZVPlatform::MutexLock lock(mutex_);
            captured_.clear();
        }
        former_ = qInstallMessageHandler(capture);
    }
    ~LogCapture() { qInstallMessageHandler(former_); }

    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// The lines logged up to now. Any thread.
    QStringList lines() const
    {
        const ZVPlatform::MutexLock lock(mutex_);
        return captured_;
    }

private:
    static void capture(QtMsgType, const QMessageLogContext &context, const QString &message)
    {
        const ZVPlatform::MutexLock lock(mutex_);
        if (QByteArrayView(context.category) == "zvupdate")
            captured_.append(message);
        else
            std::fprintf(stderr, "%s\n", qUtf8Printable(message));
    }

    inline static ZVPlatform::Mutex mutex_;
    inline static QStringList captured_ ZVUPDATE_GUARDED_BY(mutex_);
    QtMessageHandler former_ = nullptr;
};
