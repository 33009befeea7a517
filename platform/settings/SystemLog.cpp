#include "SystemLog.h"

#include <QLoggingCategory>

namespace ZVPlatform {

namespace {

const QLoggingCategory &category()
{
    static const auto &instance = *new QLoggingCategory("zvupdate", QtInfoMsg);
    return instance;
}

} // namespace

void systemLog(const QString &message)
{
    // A message may quote what the service sent; it must not be able to forge further lines.
    QString line = message;
    line.replace(QLatin1Char('\n'), QLatin1Char(' ')).replace(QLatin1Char('\r'), QLatin1Char(' '));
    qCInfo(category).noquote().nospace() << line;
}

} // namespace ZVPlatform
