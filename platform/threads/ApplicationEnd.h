#pragma once

namespace ZVPlatform {

// How everything ends that lasts as long as the process. What has work in the background, or what
// belongs to the application's thread, ends when the application does, by the function below. No
// variable is destroyed: a thread may still use it when the process is on its way out, so it is
// made by new and kept by a reference.

/// Has a function called on the application's thread when the application object goes, while its
/// event loop can still be run: the last moment at which work in the background ends in order, with
/// everything that it uses still in place. It is called once more when the process exits, for hosts
/// that leave by exit() or have no application object. To be asked for again after each such end.
/// Any thread.
void whenApplicationEnds(void (*call)());

} // namespace ZVPlatform
