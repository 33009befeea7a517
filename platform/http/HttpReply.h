#pragma once

#include "HttpExchange.h"

#include <QByteArray>

#include <optional>

namespace ZVPlatform {

/// The whole reply of an exchange that was run into memory.
struct HttpReply
{
    std::optional<Error> error;
    HttpResponse response;
    QByteArray body;
};

/// Runs an exchange on the calling thread, without running its event loop. A body of more than
/// 2 MiB is an error.
HttpReply sendSynchronously(const HttpRequest &request);

} // namespace ZVPlatform
