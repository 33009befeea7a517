#include "ApplicationEnd.h"

#include <QCoreApplication>

namespace ZVPlatform {

void whenApplicationEnds(void (*call)())
{
    qAddPostRoutine(call);
}

} // namespace ZVPlatform
