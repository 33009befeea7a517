#pragma once

#include <condition_variable>
#include <mutex>

#ifdef __clang__
#define ZVUPDATE_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ZVUPDATE_THREAD_SAFETY(attribute)
#endif

/// Marks a variable that is used under a lock only, and a function that is called under one only.
#define ZVUPDATE_GUARDED_BY(mutex) ZVUPDATE_THREAD_SAFETY(guarded_by(mutex))
#define ZVUPDATE_REQUIRES(mutex) ZVUPDATE_THREAD_SAFETY(requires_capability(mutex))

namespace ZVPlatform {

/// A mutex of the standard library, with what Clang needs to check how it is used.
template <class Native>
class ZVUPDATE_THREAD_SAFETY(capability("mutex")) BasicMutex
{
public:
    void lock() ZVUPDATE_THREAD_SAFETY(acquire_capability()) { native_.lock(); }
    void unlock() ZVUPDATE_THREAD_SAFETY(release_capability()) { native_.unlock(); }

private:
    Native native_;
};

using Mutex = BasicMutex<std::mutex>;
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

/// Holds a mutex to the end of the block, but for where it is unlocked and locked again.
template <class AnyMutex>
class ZVUPDATE_THREAD_SAFETY(scoped_lockable) MutexLock
{
public:
    explicit MutexLock(AnyMutex &mutex) ZVUPDATE_THREAD_SAFETY(acquire_capability(mutex))
        : lock_(mutex)
    {
    }
    ~MutexLock() ZVUPDATE_THREAD_SAFETY(release_capability()) = default;

    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

    void lock() ZVUPDATE_THREAD_SAFETY(acquire_capability()) { lock_.lock(); }
    void unlock() ZVUPDATE_THREAD_SAFETY(release_capability()) { lock_.unlock(); }

private:
    std::unique_lock<AnyMutex> lock_;
};

/// Waits upon a MutexLock.
using Condition = std::condition_variable_any;

} // namespace ZVPlatform
