#pragma once

#include "../platform/Export.h"

#include <QByteArray>
#include <QString>

#include <optional>

/// Seals and unseals the texts exchanged with the update service: XXTEA under the service's fixed
/// key, written as upper-case hexadecimal so that it can stand in a URL as it is.
///
/// Stateless; may be called from any thread.
class ZVUPDATE_EXPORT HttpFunctionURLEncode
{
public:
    /// Seals text. The result is a multiple of 8 characters long, and empty only for an empty text.
    static QString encode(const QString &text);

    /// Unseals text. Absent when it is not something that encode() made: not hexadecimal, altered,
    /// sealed under another key, or not UTF-8 inside. Lower-case digits are accepted.
    static std::optional<QString> decode(const QString &sealed);

    /// Unseals bytes, whatever they are; absent as above, but for the last reason.
    static std::optional<QByteArray> decodeBytes(const QString &sealed);

    /// Reads pairs of hexadecimal digits as bytes, leniently: each pair is read as the C library's
    /// strtoul reads it in base 16, so that a bad digit ends the number and a pair without any
    /// digit is the byte 0. An odd last character makes a byte of its own. Never fails.
    static QByteArray dataFromHexString(const QString &hex);
};
