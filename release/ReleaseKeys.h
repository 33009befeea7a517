#pragma once

#include "../platform/Export.h"
#include "../platform/Result.h"
#include "ReleaseKey.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <optional>

/// The keys that a host trusts; each of them suffices. A value; may be used on any thread.
class ZVUPDATE_EXPORT ReleaseKeys
{
public:
    /// The most keys of a host.
    static constexpr qsizetype most = 8;
    /// The most signatures of a release. One with more has none.
    static constexpr qsizetype mostSignatures = 16;

    /// Reads one to eight keys. Fails with a sentence that names the key, counted from 1.
    static ZVPlatform::Result<ReleaseKeys> read(const QList<QByteArray> &texts);

    /// Whose signature of a statement is among these, which are in Base64; absent when there is
    /// none.
    std::optional<ReleaseKey> signer(const QByteArray &statement,
                                     const QStringList &signatures) const;

    /// All of them, in the order in which they were read.
    const QList<ReleaseKey> &keys() const { return keys_; }

private:
    QList<ReleaseKey> keys_;
};
