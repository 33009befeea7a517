#pragma once

#include "../Export.h"

#include <QStringView>

#include <compare>

namespace ZVPlatform {

/// Orders two versions number by number: 2103 is newer than 2100, 1.10 newer than 1.9. Whatever is
/// not an ASCII digit only separates numbers, a missing number counts as zero (1 and 1.0 are the
/// same version), and numbers may be of any length.
///
/// A hyphen between a digit and an ASCII letter begins a pre-release, as in 2.1.0-beta1, which
/// comes before 2.1.0. Two of the same version are ordered word by word as semantic versions are,
/// but that the digits in a word count as a number: 2.1.0-beta.2 comes before 2.1.0-beta.10, and
/// so does -beta2 before -beta10. A hyphen before a digit is none: 2.1.0-1 is newer than 2.1.0.
ZVUPDATE_EXPORT std::strong_ordering compareVersions(QStringView left, QStringView right);

/// Whether a version has a number to be ordered by.
ZVUPDATE_EXPORT bool hasNumber(QStringView version);

} // namespace ZVPlatform
