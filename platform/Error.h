#pragma once

#include "Export.h"

#include <QString>

namespace ZVPlatform {

/// Why something did not work: a domain that says whose code it is, a code, and a sentence for
/// people. A value; may be used on any thread.
struct ZVUPDATE_EXPORT Error
{
    QString domain;               ///< Whose code it is.
    int code = 0;                 ///< What went wrong, by the domain's numbers.
    QString localizedDescription; ///< A sentence for people; may be empty.

    /// One line for logs.
    QString debugDescription() const;
};

/// The domain of errors that the network (and not the service) caused.
ZVUPDATE_EXPORT extern const char networkErrorDomain[];

/// The codes of networkErrorDomain, named by what happened to the exchange.
enum class NetworkError {
    Cancelled = 1,
    TimedOut,
    BadUrl,
    HostNotFound,
    CannotConnect,
    ConnectionLost,
    TooManyRedirects,
    UnsupportedProtocol,
    SecureConnectionFailed,
    BadReply,
    ReplyTooLarge,
    Other,
    ProxyRefused,
    RedirectRefused,
    CertificateRefused,
};

/// The domain of errors that the file at a download's local path has caused.
ZVUPDATE_EXPORT extern const char fileErrorDomain[];

/// The codes of fileErrorDomain, named by what is the matter with it.
enum class FileError {
    InUse = 1,
    IsDirectory,
    NoRoom,
    NotWritable,
    WrongDigest,
    TooLong,
};

} // namespace ZVPlatform
