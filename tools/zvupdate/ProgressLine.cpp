#include "ProgressLine.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr double memoryInSeconds = 3;        // Over which the speed is averaged.
constexpr double shortestMeasurement = 0.05; // In seconds; chance rules below.
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

} // namespace

QString ProgressLine::text(const UpdateDownloadProgress &progress, int width)
{
    measure(progress);
    QString figures = size(progress.received);
    if (progress.total)
        figures += u" of "_s + size(*progress.total);
    if (rate_ > 0)
        figures += u"  %1/s"_s.arg(size(static_cast<uint64_t>(rate_)));

    QString start;
    if (progress.total && *progress.total > 0) {
        const uint64_t received = std::min(progress.received, *progress.total);
        const double share = static_cast<double>(received) / static_cast<double>(*progress.total);
        figures += remaining(*progress.total - received);
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

// The recent past counts most, and the more time has passed since the last look, the less what was
// known before.
void ProgressLine::measure(const UpdateDownloadProgress &progress)
{
    const double seconds = static_cast<double>(sinceLast_.nsecsElapsed()) / 1e9;
    const uint64_t before = std::max(lastReceived_, progress.resumedAt);
    if (seconds < shortestMeasurement || progress.received < before)
        return;
    sinceLast_.start();
    lastReceived_ = progress.received;
    const double rate = static_cast<double>(progress.received - before) / seconds;
    const double weight = rate_ > 0 ? 1 - std::exp(-seconds / memoryInSeconds) : 1;
    rate_ += weight * (rate - rate_);
}

QString ProgressLine::remaining(uint64_t bytes) const
{
    if (rate_ <= 0 || bytes == 0)
        return {};
    const double seconds = static_cast<double>(bytes) / rate_;
    constexpr double aDay = 86'400; // Beyond that nobody can tell.
    return seconds < aDay ? u"  %1 left"_s.arg(duration(static_cast<uint64_t>(std::ceil(seconds))))
                          : QString();
}
