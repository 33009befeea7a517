#pragma once

#include "../platform/Export.h"

extern "C" {

/// The library's version: a text for tools that look into binaries, and 1.0 as a number.
ZVUPDATE_EXPORT extern const unsigned char ZVUpdateVersionString[];
ZVUPDATE_EXPORT extern const double ZVUpdateVersionNumber;
}
