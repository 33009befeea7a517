#pragma once

#include "../../platform/Mutex.h"

#include <QHash>
#include <QQueue>
#include <QString>

#include <chrono>

/// The download tokens that are good now. A token may be used any number of times until it expires,
/// since a client that resumes a download uses its token again. May be used from any thread.
class TokenStore
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// When more than capacity tokens are wanted, the oldest goes early; memory stays bounded.
    explicit TokenStore(std::chrono::seconds lifetime, qsizetype capacity = 100'000);

    /// A new random token, good until now + lifetime.
    QString issue(TimePoint now);

    /// Whether a token was issued here and has not expired.
    bool isGood(const QString &token, TimePoint now) const;

private:
    const std::chrono::seconds lifetime_;
    const qsizetype capacity_;

    mutable ZVPlatform::Mutex mutex_;
    // All tokens live equally long, so the oldest is the first to expire.
    QHash<QString, TimePoint> expiries_ ZVUPDATE_GUARDED_BY(mutex_);
    QQueue<QString> oldestFirst_ ZVUPDATE_GUARDED_BY(mutex_);
};
