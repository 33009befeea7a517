#pragma once

#include "../platform/Export.h"

extern "C" {

/// Chooses how downloads run; read when each one starts. From 1343.0 on, which is the initial
/// value, they run in session mode and report on a background thread. A host that lowers it gets
/// connection mode: downloads report on the main thread, and proceed only while that runs its event
/// loop. To be set from the thread that runs the checks.
ZVUPDATE_EXPORT extern double kZVAppKitVersionNumber;
}
