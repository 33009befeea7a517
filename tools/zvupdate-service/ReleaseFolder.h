#pragma once

#include "../../platform/Mutex.h"
#include "../../platform/Result.h"
#include "../catalogue/Catalogue.h"
#include "../catalogue/InstallerDigests.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>

/// The folder that is served, as it lies on disk at the moment of asking: when releases.json or an
/// installer has changed or a signed offer has expired, the folder is read again before the
/// question is answered. A change that cannot be served is logged, and what was last good goes on
/// being served.
///
/// load() comes first; after that any thread may ask.
class ReleaseFolder
{
public:
    /// The newest release of a product.
    struct Offer
    {
        QString version;
        /// The reply that announces it.
        QByteArray reply;
    };

    /// What is other than usual.
    struct Oddities
    {
        /// Installers are announced with a digest that differs in its first digit.
        bool hasWrongDigest = false;
        /// Releases are offered that builds with release keys will refuse.
        bool allowsUnsigned = false;
    };

    ReleaseFolder(const QString &directory, const Oddities &oddities);

    /// Reads the folder for the first time. Fails with one line.
    ZVPlatform::Result<void> load();

    /// Absent when the product is unknown or has no release.
    std::optional<Offer> newestRelease(const QString &productId);

    /// The installer that clients ask for under this name; absent when there is none.
    std::optional<QString> installerPath(const QString &clientFileName);

private:
    struct Contents
    {
        /// Of the files on which the rest depends.
        QHash<QString, std::optional<FileStamp>> stamps;
        /// When the first of the signed releases expires.
        std::optional<QDateTime> expires;
        QHash<QString, Offer> offers;
        QHash<QString, QString> installerPaths;
    };
    using ContentsPointer = std::shared_ptr<const Contents>;

    static bool isCurrent(const Contents &contents);

    ContentsPointer contents() const;
    /// What there is to be served now.
    ContentsPointer current();
    ContentsPointer refreshed(const ContentsPointer &stale);
    ZVPlatform::Result<ContentsPointer> read() ZVUPDATE_REQUIRES(refreshMutex_);
    /// Adds a release to those of its product that are newer.
    ZVPlatform::Result<void> add(const QString &productId, const Catalogue::Release &release,
                                 const QDateTime &now, Contents *contents)
        ZVUPDATE_REQUIRES(refreshMutex_);
    Offer offerOf(Catalogue::Release release, QString md5) const;

    const QString directory_;
    const Oddities oddities_;
    const QString cataloguePath_;

    mutable ZVPlatform::Mutex contentsMutex_;
    ContentsPointer contents_ ZVUPDATE_GUARDED_BY(contentsMutex_);

    // Held as long as the folder is being read.
    ZVPlatform::Mutex refreshMutex_;
    InstallerDigests digests_ ZVUPDATE_GUARDED_BY(refreshMutex_);
    QString lastError_ ZVUPDATE_GUARDED_BY(refreshMutex_);
    std::chrono::steady_clock::time_point nextAttempt_ ZVUPDATE_GUARDED_BY(refreshMutex_);
};
