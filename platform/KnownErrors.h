#pragma once

#include "Error.h"

namespace ZVPlatform {

// The errors that the system makes itself, each with its sentence. Any thread.

/// Without a sentence; the status is all.
Error httpError(int status);
Error networkError(NetworkError what);
Error fileError(FileError what);

} // namespace ZVPlatform
