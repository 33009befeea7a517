#include "KnownErrors.h"

#include <iterator>

namespace ZVPlatform {

const char networkErrorDomain[] = "Network Error";
const char fileErrorDomain[] = "File Error";

namespace {

// By their codes, from 1 on.
const char *const networkSentences[] = {
    "The transfer was cancelled.",
    "The server did not answer in time.",
    "The address is not a valid URL.",
    "The server's name could not be found.",
    "The server could not be reached.",
    "The connection was lost before the reply was complete.",
    "The server redirected too many times.",
    "The address is neither http nor https.",
    "No secure connection to the server could be made.",
    "The server's reply is not valid HTTP.",
    "The server's reply is too large.",
    "The transfer failed.",
    "The proxy refused to connect to the server.",
    "The server redirected to an address that is not allowed.",
    "No secure connection to the server could be made.", // Nor does the log tell it from the other.
};
static_assert(std::size(networkSentences) == static_cast<size_t>(NetworkError::CertificateRefused));

const char *const fileSentences[] = {
    "Another download is writing the same file.",
    "A directory is in the place of the file.",
    "There is not enough room on the disk.",
    "The file cannot be written.",
    "The file received does not have the digest announced.",
    "The file is longer than it may be.",
};
static_assert(std::size(fileSentences) == static_cast<size_t>(FileError::TooLong));

Error error(const char *domain, int code, const char *const *sentences)
{
    return {QLatin1String(domain), code, QLatin1String(sentences[code - 1])};
}

} // namespace

QString Error::debugDescription() const
{
    const QString text =
        localizedDescription.isEmpty() ? QStringLiteral("(null)") : localizedDescription;
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
        .arg(domain, QString::number(code), text);
}

Error httpError(int status)
{
    return {QStringLiteral("HTTP Error"), status, {}};
}

Error networkError(NetworkError what)
{
    return error(networkErrorDomain, static_cast<int>(what), networkSentences);
}

Error fileError(FileError what)
{
    return error(fileErrorDomain, static_cast<int>(what), fileSentences);
}

} // namespace ZVPlatform
