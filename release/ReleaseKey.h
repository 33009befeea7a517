#pragma once

#include "../platform/Export.h"
#include "../platform/Result.h"

#include <QByteArray>
#include <QString>

/// A public key of the maker's, under which releases are signed with Ed25519. A value; may be used
/// on any thread.
class ZVUPDATE_EXPORT ReleaseKey
{
public:
    /// Reads a key as the usual tools write it: a public key file of signify or minisign, its
    /// line of Base64 alone, or PEM. Comments and key numbers are not trusted, and ignored. Fails
    /// with half a sentence that says what is wrong with the text, also where a secret key stands
    /// beside the public one.
    static ZVPlatform::Result<ReleaseKey> read(const QByteArray &text);

    /// The 32 bytes of the key itself.
    const QByteArray &bytes() const { return bytes_; }

    /// By what people know it: the key number as minisign shows it or, where the text has none, the
    /// first 16 hexadecimal digits of the key.
    QString name() const;

    /// A text that read() takes and that holds this key and its number, and nothing else of what it
    /// was read from.
    QByteArray text() const;

private:
    ReleaseKey(QByteArray bytes, QByteArray number);

    QByteArray bytes_;
    QByteArray number_; // Empty where there is none.
};
