#include "VersionOrder.h"

#include <algorithm>

namespace ZVPlatform {

namespace {

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// Cuts the next number off the front, without its leading zeros; empty for zero and at the end.
QStringView takeNumber(QStringView &version)
{
    const auto first = std::find_if(version.begin(), version.end(), isDigit);
    const auto last = std::find_if_not(first, version.end(), isDigit);
    const auto significant = std::find_if(first, last, [](QChar c) { return c != u'0'; });
    version = QStringView(last, version.end());
    return QStringView(significant, last);
}

} // namespace

std::strong_ordering compareVersions(QStringView left, QStringView right)
{
    while (!left.isEmpty() || !right.isEmpty()) {
        const QStringView a = takeNumber(left);
        const QStringView b = takeNumber(right);
        if (a.size() != b.size())
            return a.size() <=> b.size();
        if (const int order = a.compare(b); order != 0)
            return order <=> 0;
    }
    return std::strong_ordering::equal;
}

bool hasNumber(QStringView version)
{
    return std::any_of(version.begin(), version.end(), isDigit);
}

} // namespace ZVPlatform
