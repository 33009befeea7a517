#pragma once

#include "HttpExchange.h"

#include <QByteArray>

namespace ZVPlatform {

/// The whole reply of an exchange that was run into memory.
struct HttpReply
{
    HttpResponse response;
    QByteArray body;
};

/// Runs an exchange on the calling thread, without running its event loop. A body of more than
/// 2 MiB is a failure.
Result<HttpReply, Error> sendSynchronously(const HttpRequest &request);

} // namespace ZVPlatform
