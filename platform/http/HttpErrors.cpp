#include "HttpErrors.h"

namespace ZVPlatform {

namespace {

NetworkError meaning(CURLcode result)
{
    switch (result) {
    case CURLE_OPERATION_TIMEDOUT:
        return NetworkError::TimedOut;
    case CURLE_URL_MALFORMAT:
        return NetworkError::BadUrl;
    case CURLE_UNSUPPORTED_PROTOCOL:
        return NetworkError::UnsupportedProtocol;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        return NetworkError::HostNotFound;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
    case CURLE_INTERFACE_FAILED:
        return NetworkError::CannotConnect;
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
        return NetworkError::ConnectionLost;
    case CURLE_TOO_MANY_REDIRECTS:
        return NetworkError::TooManyRedirects;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
        return NetworkError::SecureConnectionFailed;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_HTTP2:
        return NetworkError::BadReply;
    default:
        return NetworkError::Other;
    }
}

QString text(NetworkError what)
{
    switch (what) {
    case NetworkError::Cancelled:
        return QStringLiteral("The transfer was cancelled.");
    case NetworkError::TimedOut:
        return QStringLiteral("The server did not answer in time.");
    case NetworkError::BadUrl:
        return QStringLiteral("The address is not a valid URL.");
    case NetworkError::HostNotFound:
        return QStringLiteral("The server's name could not be found.");
    case NetworkError::CannotConnect:
        return QStringLiteral("The server could not be reached.");
    case NetworkError::ConnectionLost:
        return QStringLiteral("The connection was lost before the reply was complete.");
    case NetworkError::TooManyRedirects:
        return QStringLiteral("The server redirected too many times.");
    case NetworkError::UnsupportedProtocol:
        return QStringLiteral("The address is neither http nor https.");
    case NetworkError::SecureConnectionFailed:
        return QStringLiteral("No secure connection to the server could be made.");
    case NetworkError::BadReply:
        return QStringLiteral("The server's reply is not valid HTTP.");
    case NetworkError::ReplyTooLarge:
        return QStringLiteral("The server's reply is too large.");
    case NetworkError::ProxyRefused:
        return QStringLiteral("The proxy refused to connect to the server.");
    case NetworkError::RedirectRefused:
        return QStringLiteral("The server redirected to an address that is not allowed.");
    case NetworkError::Other:
        break;
    }
    return QStringLiteral("The transfer failed.");
}

} // namespace

Error networkError(NetworkError what)
{
    return {QLatin1String(networkErrorDomain), static_cast<int>(what), text(what)};
}

Error errorFromCurl(CURLcode result)
{
    Error error = networkError(meaning(result));
    if (error.code == static_cast<int>(NetworkError::Other))
        error.localizedDescription +=
            QLatin1String(" (%1)").arg(QString::fromUtf8(curl_easy_strerror(result)));
    return error;
}

} // namespace ZVPlatform
