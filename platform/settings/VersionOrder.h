#pragma once

#include "../Export.h"

#include <QStringView>

#include <compare>

namespace ZVPlatform {

/// Orders two versions number by number: 2103 is newer than 2100, 1.10 newer than 1.9. Whatever is
/// not an ASCII digit only separates numbers, a missing number counts as zero (1 and 1.0 are the
/// same version), and numbers may be of any length.
ZVUPDATE_EXPORT std::strong_ordering compareVersions(QStringView left, QStringView right);

/// Whether a version has a number to be ordered by.
ZVUPDATE_EXPORT bool hasNumber(QStringView version);

} // namespace ZVPlatform
