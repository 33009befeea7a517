#pragma once

#include "../platform/Export.h"
#include "../platform/Result.h"
#include "ReleaseKey.h"

#include <QByteArray>
#include <QString>

#include <optional>

/// A signature of a release's statement, by whichever tool it was made. A value; may be used on any
/// thread.
class ZVUPDATE_EXPORT ReleaseSignature
{
public:
    /// Reads what a tool has written: a signature file of signify or minisign, or the 64 bytes of
    /// "openssl pkeyutl -sign -rawin". Comments, and minisign's signature of them, are ignored.
    /// Fails with half a sentence.
    static ZVPlatform::Result<ReleaseSignature> read(const QByteArray &file);

    /// Reads a signature as it stands in a reply; absent when it is none.
    static std::optional<ReleaseSignature> fromBase64(const QString &text);

    /// As it is to stand in a reply.
    QString toBase64() const;

    /// Whether it is the key's signature of a statement.
    bool fits(const QByteArray &statement, const ReleaseKey &key) const;

private:
    explicit ReleaseSignature(QByteArray bytes);
    static std::optional<ReleaseSignature> fromBytes(const QByteArray &bytes);

    QByteArray bytes_; // With algorithm and key number, unless it is bare.
};
