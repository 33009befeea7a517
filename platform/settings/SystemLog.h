#pragma once

#include <QString>

namespace ZVPlatform {

/// Writes one line to the system log: Qt's logging category "zvupdate" at info level, which hosts
/// filter and redirect as they do for every Qt library. Any thread.
void systemLog(const QString &message);

} // namespace ZVPlatform
