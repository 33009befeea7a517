#pragma once

#include "../Export.h"

#include <QString>
#include <QStringList>

namespace ZVPlatform {

/// The identifier of the locale whose language the user reads, such as "zh_TW" or "en_US": that of
/// LC_ALL, LC_MESSAGES or LANG, whichever is set first, on systems that have these variables. The C
/// and POSIX locales, and those of languages that are not known, are "en".
QString currentLocaleIdentifier();

/// The languages that the user prefers, best first, as identifiers such as "zh-Hant-TW". Each is
/// followed by its shorter forms, so that "zh-TW" brings "zh-Hant-TW" and "zh-Hant" with it.
ZVUPDATE_EXPORT QStringList preferredLanguages();

} // namespace ZVPlatform
