#include "ProgressLine.h"

#include <QLocale>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype shortestBar = 10;
constexpr qsizetype longestBar = 40;

QString duration(uint64_t seconds)
{
    if (seconds < 60)
        return u"%1 s"_s.arg(seconds);
    if (seconds < 3600)
        return u"%1 min %2 s"_s.arg(seconds / 60).arg(seconds % 60);
    return u"%1 h %2 min"_s.arg(seconds / 3600).arg(seconds / 60 % 60);
}

// "[=====>    ]", or nothing when that would be too short to say anything.
QString bar(double share, qsizetype length)
{
    if (length < shortestBar)
        return {};
    const qsizetype inside = std::min(length, longestBar) - 2;
    const auto done = static_cast<qsizetype>(share * static_cast<double>(inside));
    QString filled(done, u'=');
    if (done < inside)
        filled += u'>';
    return u'[' + filled.leftJustified(inside) + u"]  "_s;
}

QString remaining(uint64_t bytes, uint64_t bytesPerSecond)
{
    if (bytesPerSecond == 0 || bytes == 0)
        return {};
    constexpr uint64_t aDay = 86'400; // Beyond that nobody can tell.
    const uint64_t seconds = bytes / bytesPerSecond + 1;
    return seconds < aDay ? u"  %1 left"_s.arg(duration(seconds)) : QString();
}

} // namespace

QString ProgressLine::text(const State &state, int width)
{
    QString figures = size(state.done);
    if (state.total)
        figures += u" of "_s + size(*state.total);
    if (state.bytesPerSecond > 0)
        figures += u"  %1/s"_s.arg(size(state.bytesPerSecond));

    QString start;
    if (state.total && *state.total > 0) {
        const uint64_t done = std::min(state.done, *state.total);
        const double share = static_cast<double>(done) / static_cast<double>(*state.total);
        figures += remaining(*state.total - done, state.bytesPerSecond);
        start = u"%1 %  "_s.arg(static_cast<int>(share * 100), 3);
        start += bar(share, width - start.size() - figures.size() - 2);
    }
    return (start + figures).left(width);
}

QString ProgressLine::size(uint64_t bytes)
{
    return QLocale::c().formattedDataSize(static_cast<qint64>(bytes), 1,
                                          QLocale::DataSizeIecFormat);
}
