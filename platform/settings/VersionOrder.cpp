#include "VersionOrder.h"

#include <algorithm>

namespace ZVPlatform {

namespace {

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

bool isLetter(QChar c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

struct Parts
{
    QStringView numbers;
    QStringView preRelease; // Empty for a release.
};

Parts partsOf(QStringView version)
{
    for (qsizetype i = 1; i + 1 < version.size(); ++i) {
        if (version[i] == u'-' && isDigit(version[i - 1]) && isLetter(version[i + 1]))
            return {version.first(i), version.sliced(i + 1)};
    }
    return {version, {}};
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

// Cuts the next letters or, where those are next, the next digits off the front; empty at the end.
QStringView takeWord(QStringView &preRelease)
{
    const auto first = std::find_if(preRelease.begin(), preRelease.end(),
                                    [](QChar c) { return isDigit(c) || isLetter(c); });
    const auto last = first != preRelease.end() && isDigit(*first)
                          ? std::find_if_not(first, preRelease.end(), isDigit)
                          : std::find_if_not(first, preRelease.end(), isLetter);
    preRelease = QStringView(last, preRelease.end());
    return QStringView(first, last);
}

std::strong_ordering compareNumbers(QStringView left, QStringView right)
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

std::strong_ordering compareWords(QStringView a, QStringView b)
{
    const bool isNumber = isDigit(a.front());
    if (isNumber != isDigit(b.front()))
        return isNumber ? std::strong_ordering::less : std::strong_ordering::greater;
    return isNumber ? compareNumbers(a, b) : a.compare(b) <=> 0;
}

std::strong_ordering comparePreReleases(QStringView left, QStringView right)
{
    // What has none is the release.
    if (left.isEmpty() || right.isEmpty())
        return left.isEmpty() <=> right.isEmpty();
    auto order = std::strong_ordering::equal;
    while (order == std::strong_ordering::equal) {
        const QStringView a = takeWord(left);
        const QStringView b = takeWord(right);
        if (a.isEmpty() || b.isEmpty())
            return b.isEmpty() <=> a.isEmpty();
        order = compareWords(a, b);
    }
    return order;
}

} // namespace

std::strong_ordering compareVersions(QStringView left, QStringView right)
{
    const Parts a = partsOf(left);
    const Parts b = partsOf(right);
    const auto order = compareNumbers(a.numbers, b.numbers);
    return order == std::strong_ordering::equal ? comparePreReleases(a.preRelease, b.preRelease)
                                                : order;
}

bool hasNumber(QStringView version)
{
    return std::any_of(version.begin(), version.end(), isDigit);
}

} // namespace ZVPlatform
