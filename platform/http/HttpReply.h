#pragma once

#include "HttpExchange.h"

#include <QByteArray>

namespace ZVPlatform {

/// The reply of an exchange that was run into memory.
struct HttpReply
{
    HttpResponse response;
    QByteArray body;
};

/// Runs an exchange into memory on the calling thread, without running its event loop. A body of
/// more than 2 MiB is a failure. After a failure the reply is what had come by then.
Result<void, Error> sendSynchronously(HttpExchange &exchange, HttpReply &reply);

} // namespace ZVPlatform
