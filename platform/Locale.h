#pragma once

#include "Export.h"

#include <QString>
#include <QStringList>

namespace ZVPlatform {

/// The identifier of the user's current locale, such as "zh_TW" or "en_US"; the C and POSIX locales
/// are "en".
QString currentLocaleIdentifier();

/// The languages that the user prefers, best first, as identifiers such as "zh-Hant-TW". Each is
/// followed by its shorter forms, so that "zh-TW" brings "zh-Hant-TW" and "zh-Hant" with it.
ZVUPDATE_EXPORT QStringList preferredLanguages();

} // namespace ZVPlatform
