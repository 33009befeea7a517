#include "RangeHeader.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace {

constexpr quint64 noEnd = std::numeric_limits<quint64>::max();

// Plain digits only; a number too large for the type reads as its largest value, which no file
// reaches.
std::optional<quint64> number(QByteArrayView digits)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (digits.isEmpty() || !std::all_of(digits.begin(), digits.end(), isDigit))
        return std::nullopt;
    bool fits = false;
    const quint64 value = digits.toULongLong(&fits);
    return fits ? value : noEnd;
}

} // namespace

RangeHeader::RangeHeader(QByteArrayView value, qint64 fileSize) : length_(fileSize)
{
    constexpr QByteArrayView unit("bytes=");
    value = value.trimmed();
    if (value.first(std::min(unit.size(), value.size())).compare(unit, Qt::CaseInsensitive) != 0)
        return;
    value = value.sliced(unit.size()).trimmed();
    const qsizetype dash = value.indexOf('-');
    if (dash < 0)
        return;
    const QByteArrayView before = value.first(dash);
    const QByteArrayView after = value.sliced(dash + 1);
    const auto first = number(before);
    const auto last = number(after);
    const auto size = static_cast<quint64>(fileSize);

    if (before.isEmpty() && last) // the last so many bytes
        set(*last > 0 ? size - std::min(size, *last) : size, noEnd, size);
    else if (first && after.isEmpty())
        set(*first, noEnd, size);
    else if (first && last && *first <= *last)
        set(*first, *last, size);
}

void RangeHeader::set(quint64 first, quint64 last, quint64 fileSize)
{
    if (first >= fileSize) {
        kind_ = Kind::Unsatisfiable;
        length_ = 0;
        return;
    }
    kind_ = Kind::Part;
    offset_ = static_cast<qint64>(first);
    length_ = static_cast<qint64>(std::min(last, fileSize - 1) - first + 1);
}
