#pragma once

#include <QStringView>

#include <compare>

/// Orders two versions number by number: 2103 is newer than 2100, 1.10 newer than 1.9. Whatever is
/// not an ASCII digit only separates numbers, a missing number counts as zero (1 and 1.0 are the
/// same version), and numbers may be of any length.
std::strong_ordering compareVersions(QStringView left, QStringView right);

/// Whether a version has a number to be ordered by.
bool hasNumber(QStringView version);
