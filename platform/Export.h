#pragma once

/// Marks what the shared library hands out; everything else is hidden. The libraries are built with
/// hidden visibility, so a static build needs nothing more.
#define ZVUPDATE_EXPORT __attribute__((visibility("default")))

/// Marks what is hidden within something that is handed out.
#define ZVUPDATE_NO_EXPORT __attribute__((visibility("hidden")))
