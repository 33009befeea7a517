#include "LogCapture.h"

#include "../../platform/Mutex.h"

#include <QByteArrayView>

#include <cstdio>

namespace {

ZVPlatform::Mutex mutex;
QStringList captured ZVUPDATE_GUARDED_BY(mutex);

void capture(QtMsgType, const QMessageLogContext &context, const QString &message)
{
    if (QByteArrayView(context.category) == "zvupdate") {
        const ZVPlatform::MutexLock lock(mutex);
        captured.append(message);
    } else {
        std::fprintf(stderr, "%s\n", qUtf8Printable(message));
    }
}

} // namespace

LogCapture::LogCapture()
{
    {
        const ZVPlatform::MutexLock lock(mutex);
        captured.clear();
    }
    former_ = qInstallMessageHandler(capture);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(former_);
}

QStringList LogCapture::lines() const
{
    const ZVPlatform::MutexLock lock(mutex);
    return captured;
}
