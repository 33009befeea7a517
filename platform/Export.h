#pragma once

/// Marks what the shared library hands out; everything else is hidden. The libraries are built with
/// hidden visibility, so a static build needs nothing more.
#define ZVUPDATE_EXPORT __attribute__((visibility("default")))
