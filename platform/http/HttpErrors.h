#pragma once

#include "../Error.h"

#include <curl/curl.h>

namespace ZVPlatform {

/// The system's error for a result of curl other than CURLE_OK.
Error errorFromCurl(CURLcode result);

/// The system's error for what ended an exchange without curl's doing.
Error networkError(NetworkError what);

} // namespace ZVPlatform
