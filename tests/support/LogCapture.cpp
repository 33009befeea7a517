#include "LogCapture.h"

#include <QByteArrayView>

#include <cstdio>
#include <mutex>

namespace {

std::mutex mutex;
QStringList captured; // Guarded by mutex.

void capture(QtMsgType, const QMessageLogContext &context, const QString &message)
{
    if (QByteArrayView(context.category) == "zvupdate") {
        const std::lock_guard lock(mutex);
        captured.append(message);
    } else {
        std::fprintf(stderr, "%s\n", qUtf8Printable(message));
    }
}

} // namespace

LogCapture::LogCapture()
{
    {
        const std::lock_guard lock(mutex);
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
    const std::lock_guard lock(mutex);
    return captured;
}
