#pragma once

#include <functional>

/// What a thread does while it waits.
enum class Meanwhile { RunEventLoop, Sleep };

/// Waits until a condition holds. False when it still does not after half a minute, which is for
/// faults only: no test depends on how long anything takes. A test that has failed already waits
/// for a second.
bool waitFor(const std::function<bool()> &condition, Meanwhile meanwhile = Meanwhile::RunEventLoop);
