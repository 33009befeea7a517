#pragma once

#include "../platform/Export.h"
#include "../platform/Result.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include <optional>

/// What the maker states of a release, and signs: the bytes of the object that a check's reply
/// seals. A value; may be used on any thread.
struct ZVUPDATE_EXPORT ReleaseStatement
{
    QString product = {};                  ///< The identifier of the product.
    QString version = {};                  ///< The version offered.
    QString md5 = {};                      ///< The installer's MD5 digest, 32 digits in lower case.
    QByteArray sha256 = {};                ///< Its SHA-256 digest, 32 bytes.
    quint64 size = 0;                      ///< Its size in bytes.
    std::optional<QDateTime> expires = {}; ///< From when on nobody is to take it.

    /// The member of the signed object that older clients pass over.
    static constexpr char16_t member[] = u"ZVSigned";

    /// Reads the signed bytes. Fails with half a sentence, also where they could be read in two
    /// ways, as with a key that stands twice.
    static ZVPlatform::Result<ReleaseStatement> read(const QByteArray &bytes);

    /// The value of that member for this release.
    QJsonObject signedMember() const;

    /// Reads a date as statements write it, such as 2027-01-31T00:00:00Z; absent when it is none.
    static std::optional<QDateTime> date(const QString &text);
};
