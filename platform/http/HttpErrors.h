#pragma once

#include "../Error.h"

#include <curl/curl.h>

namespace ZVPlatform {

/// The system's error for a result of curl other than CURLE_OK.
Error errorFromCurl(CURLcode result);

} // namespace ZVPlatform
