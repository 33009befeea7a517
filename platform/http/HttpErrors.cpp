#include "HttpErrors.h"

#include "../KnownErrors.h"

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
        return NetworkError::CannotConnect;
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
        return NetworkError::ConnectionLost;
    case CURLE_TOO_MANY_REDIRECTS:
        return NetworkError::TooManyRedirects;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
        return NetworkError::SecureConnectionFailed;
    case CURLE_PEER_FAILED_VERIFICATION:
        return NetworkError::CertificateRefused;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
        return NetworkError::BadReply;
    default:
        return NetworkError::Other;
    }
}

} // namespace

Error errorFromCurl(CURLcode result)
{
    Error error = networkError(meaning(result));
    if (error.code == static_cast<int>(NetworkError::Other))
        error.localizedDescription +=
            QLatin1String(" (%1)").arg(QString::fromUtf8(curl_easy_strerror(result)));
    return error;
}

} // namespace ZVPlatform
