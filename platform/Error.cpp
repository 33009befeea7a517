#include "KnownErrors.h"

namespace ZVPlatform {

const char networkErrorDomain[] = "Network Error";
const char fileErrorDomain[] = "File Error";

namespace {

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
    case NetworkError::CertificateRefused:
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

QString text(FileError what)
{
    switch (what) {
    case FileError::InUse:
        return QStringLiteral("Another download is writing the same file.");
    case FileError::IsDirectory:
        return QStringLiteral("A directory is in the place of the file.");
    case FileError::NoRoom:
        return QStringLiteral("There is not enough room on the disk.");
    case FileError::NotWritable:
        return QStringLiteral("The file cannot be written.");
    case FileError::WrongDigest:
        return QStringLiteral("The file received does not have the digest announced.");
    }
    return {};
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
    return {QLatin1String(networkErrorDomain), static_cast<int>(what), text(what)};
}

Error fileError(FileError what)
{
    return {QLatin1String(fileErrorDomain), static_cast<int>(what), text(what)};
}

} // namespace ZVPlatform
