#include "ApplicationEnd.h"

#include <QCoreApplication>

#include <mutex>

namespace ZVPlatform {

void whenApplicationEnds(void (*call)())
{
    // Qt has a lock of its own here, which thread sanitizer does not see.
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    qAddPostRoutine(call);
}

} // namespace ZVPlatform
