#pragma once

#include "../platform/Mutex.h"

#include <chrono>
#include <cstdint>
#include <utility>

/// How fast a download is, measured by those who look at it now and then. Any thread.
class DownloadRate
{
public:
    /// The bytes a second that have come during the last second or two, by the bytes that are here
    /// now. 0 for a first look, and when there are fewer than before, as in another download.
    uint64_t perSecond(uint64_t received)
    {
        const ZVPlatform::MutexLock lock(mutex_);
        const Mark now = {Clock::now(), received};
        if (older_.at == Clock::time_point() || received < newer_.received)
            older_ = newer_ = now;
        if (now.at - newer_.at >= std::chrono::seconds(1))
            older_ = std::exchange(newer_, now);
        const double seconds = std::chrono::duration<double>(now.at - older_.at).count();
        return seconds > 0 ? static_cast<uint64_t>(double(received - older_.received) / seconds)
                           : 0;
    }

private:
    using Clock = std::chrono::steady_clock;

    struct Mark
    {
        Clock::time_point at;
        uint64_t received = 0;
    };

    ZVPlatform::Mutex mutex_;
    Mark older_ ZVUPDATE_GUARDED_BY(mutex_);
    Mark newer_ ZVUPDATE_GUARDED_BY(mutex_);
};
