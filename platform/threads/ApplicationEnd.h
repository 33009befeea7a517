#pragma once

namespace ZVPlatform {

/// Has a function called on the application's thread when the application object goes, while its
/// event loop can still be run: the last moment at which work in the background ends in order, with
/// everything that it uses still in place. To be asked for again after each such end. Any thread.
void whenApplicationEnds(void (*call)());

} // namespace ZVPlatform
