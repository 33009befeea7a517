#pragma once

#include <QByteArray>
#include <QString>

#include <chrono>
#include <optional>
#include <vector>

namespace ZVPlatform {

enum class HttpMethod { Get, Head, Post };

struct HttpHeader
{
    QByteArray name;
    QByteArray value;
};

/// A request without a body. The header fields go out as they stand and in their order, besides
/// what HTTP itself needs (Host, Accept).
struct HttpRequest
{
    HttpMethod method = HttpMethod::Get;
    QString url = {};
    std::vector<HttpHeader> headers = {};
    /// What the exchange may take in all, however busy the peer is. Without one only idleness ends
    /// it.
    std::optional<std::chrono::milliseconds> timeLimit = {};
    /// The time without any sign of the peer after which the exchange fails.
    std::chrono::milliseconds idleTimeout = std::chrono::seconds(60);
};

} // namespace ZVPlatform
