#pragma once

#include "../Mutex.h"

#include <utility>

namespace ZVPlatform {

/// A value that several threads may read and replace. Every read hands out a copy of its own, which
/// stays valid whatever happens to the original.
template <class T>
class Guarded
{
public:
    Guarded() = default;
    /// Starts with a value.
    explicit Guarded(T value) : value_(std::move(value)) {}

    /// A copy of the value.
    T get() const
    {
        const MutexLock lock(mutex_);
        return value_;
    }

    /// The former value is destroyed outside the lock, since its destructor may take its time.
    void set(T value)
    {
        const MutexLock lock(mutex_);
        std::swap(value_, value);
    }

private:
    mutable Mutex mutex_;
    T value_ ZVUPDATE_GUARDED_BY(mutex_){};
};

} // namespace ZVPlatform
