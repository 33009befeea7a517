#pragma once

#include <chrono>
#include <functional>

namespace ZVPlatform {

/// Runs the calling thread's event loop until finished() holds or the limit has passed, whichever
/// comes first; on a thread without an event loop just waits as long. User input stays queued. When
/// finished() holds already there is nothing to wait for, and no event is processed.
void runCurrentRunLoop(std::chrono::milliseconds limit, const std::function<bool()> &finished);

} // namespace ZVPlatform
