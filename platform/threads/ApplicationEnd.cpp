#include "ApplicationEnd.h"

#include "../Mutex.h"

#include <QCoreApplication>

#include <cstdlib>

namespace ZVPlatform {

void whenApplicationEnds(void (*call)())
{
    // Qt has a lock of its own here, which thread sanitizer does not see.
    static Mutex mutex;
    const MutexLock lock(mutex);
    qAddPostRoutine(call);
    std::atexit(call);
}

} // namespace ZVPlatform
