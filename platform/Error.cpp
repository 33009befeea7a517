#include "Error.h"

namespace ZVPlatform {

const char networkErrorDomain[] = "Network Error";
const char fileErrorDomain[] = "File Error";

QString Error::debugDescription() const
{
    const QString text =
        localizedDescription.isEmpty() ? QStringLiteral("(null)") : localizedDescription;
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
        .arg(domain, QString::number(code), text);
}

} // namespace ZVPlatform
