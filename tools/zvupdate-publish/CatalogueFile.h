#pragma once

#include "../catalogue/Catalogue.h"
#include "../catalogue/InstallerDigests.h"

#include <QHash>
#include <QJsonObject>
#include <QLockFile>
#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

class Arguments;

/// A folder's releases.json, to be read and to be changed. What this program does not know in it
/// stays as it is. Beside what zvupdate-service reads it keeps
/// - "size" and "md5" of a release: its installer as it was when it was added,
/// - "releaseKeys" of a release: the texts of the public keys that this build has,
/// - "statement" and "signatures" of a release that has them: the path of what the maker signs, in
///   the folder, and its signatures in Base64,
/// - "supersedes" of a release: older versions that clients have and that are no releases here,
/// - "withdrawn" of a product: what the file said of releases that were withdrawn, or, in older
///   files, their versions alone.
class CatalogueFile
{
public:
    /// Whether a folder without the file is an empty catalogue.
    enum class IfMissing { Fail, Empty };

    /// For a command that changes the catalogue or its folder, which nobody else does as long as
    /// the result lives; what killed runs have left there is removed. With --dry-run it is only
    /// read.
    static ZVPlatform::Result<CatalogueFile> open(const Arguments &arguments,
                                                  IfMissing ifMissing = IfMissing::Fail);

    /// Reads the file and checks it as the service does.
    static ZVPlatform::Result<CatalogueFile> read(const QString &directory,
                                                  IfMissing ifMissing = IfMissing::Fail);

    /// Takes the contents of a folder's file for what it holds. Fails when the service would refuse
    /// them.
    static ZVPlatform::Result<CatalogueFile> parse(const QString &directory,
                                                   const QByteArray &json);

    /// Absolute and free of symbolic links.
    const QString &directory() const { return directory_; }
    /// The file as it was read.
    const QByteArray &json() const { return json_; }
    const QList<Catalogue::Product> &products() const { return products_; }
    /// Null when there is no such product.
    const Catalogue::Product *product(const QString &id) const;
    /// Never null. A failure says why there is none.
    ZVPlatform::Result<const Catalogue::Release *> release(const QString &productId,
                                                           const QString &version) const;
    /// What the file says of a release, or of one that was withdrawn; of any other nothing.
    QJsonObject record(const QString &productId, const QString &version) const;
    /// The same of a release for people, with its size as it is now, the keys that have signed it
    /// and, if it is not offered, the reason.
    QJsonObject described(const Catalogue::Product &product,
                          const Catalogue::Release &release) const;
    /// The digests of a release's installer as it is now. Fails when it cannot be read, or is not
    /// the file that was added, or of which a statement was made.
    ZVPlatform::Result<InstallerDigests::Both> digests(const QString &productId,
                                                       const Catalogue::Release &release,
                                                       const PieceDone &done = {}) const;
    /// Versions.
    QStringList withdrawn(const QString &productId) const;
    /// Every version of a product that clients may have and that is older than the newest of the
    /// releases given, oldest first: other releases, superseded versions and withdrawn ones.
    QStringList outdated(const Catalogue::Product &product) const;
    /// Versions of a product that clients may have and for which there is nothing newer: the newest
    /// of the releases given and all above it, or all of them where none is given.
    QStringList current(const Catalogue::Product &product) const;

    /// Where the installer of a release or of a withdrawn one lies; absent when that is unknown,
    /// or not within the folder, or there is no file.
    std::optional<QString> installer(const QString &productId, const QString &version) const;
    /// The installers and statements of all releases, withdrawn ones included, and of all states
    /// that the catalogue can go back to.
    QSet<QString> keptFiles() const;

    /// A version that was withdrawn is so no more; what it has superseded then goes on being so.
    void add(const QString &productId, const QJsonObject &release);
    void withdraw(const QString &productId, const QString &version);
    /// Exchanges what the file says of a release, or of one that was withdrawn.
    void setRecord(const QString &productId, const QString &version, const QJsonObject &record);

    /// Writes the file anew, unless the service would refuse it. The catalogue can go back to what
    /// it was before. Where that fails, statements that have been written for it go.
    ZVPlatform::Result<void> save() const;

private:
    CatalogueFile() = default;

    std::optional<QString> within(const QString &installer) const;
    QStringList knownVersions(const QString &productId) const;
    void removeUnfinished() const;
    void setProductRecord(const QString &productId, const QJsonObject &record);

    std::unique_ptr<QLockFile> lock_; // Null when it has only been read.
    QString directory_;
    // As read:
    QByteArray json_;
    QList<Catalogue::Product> products_;
    // As read and changed:
    QJsonObject root_;
    QHash<QString, QJsonObject> productRecords_;
};
