#pragma once

#include "../catalogue/Catalogue.h"

#include <QHash>
#include <QJsonObject>
#include <QLockFile>
#include <QString>
#include <QStringList>

#include <memory>

class Arguments;

/// A folder's releases.json, to be read and to be changed. What this program does not know in it
/// stays as it is. Beside what zvupdate-service reads it keeps
/// - "size" and "md5" of a release: its installer as it was when it was added,
/// - "supersedes" of a release: older versions that clients have and that are no releases here,
/// - "withdrawn" of a product: versions that were releases once.
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

    /// Absolute and free of symbolic links.
    const QString &directory() const { return directory_; }
    const QList<Catalogue::Product> &products() const { return products_; }
    /// Null when there is no such product.
    const Catalogue::Product *product(const QString &id) const;
    /// What the file says of a release.
    QJsonObject record(const QString &productId, const QString &version) const;
    QStringList withdrawn(const QString &productId) const;
    /// Every version of a product that clients may have and that is older than the newest release,
    /// oldest first: other releases, superseded versions and withdrawn ones.
    QStringList outdated(const Catalogue::Product &product) const;
    /// Versions of a product that clients may have and for which there is nothing newer: the newest
    /// and withdrawn ones above it, or all withdrawn ones where there is no release.
    QStringList current(const Catalogue::Product &product) const;

    void add(const QString &productId, const QJsonObject &release);
    void withdraw(const QString &productId, const QString &version);

    /// Writes the file anew, unless the service would refuse it.
    ZVPlatform::Result<void> save() const;

private:
    CatalogueFile() = default;

    void removeUnfinished() const;
    void setProductRecord(const QString &productId, const QJsonObject &record);

    std::unique_ptr<QLockFile> lock_; // Null when it has only been read.
    QString directory_;
    QJsonObject root_;
    // As read:
    QList<Catalogue::Product> products_;
    QHash<QString, QJsonObject> productRecords_;
};
