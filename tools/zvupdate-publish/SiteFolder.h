#pragma once

#include "NginxConfig.h"
#include "SiteContents.h"

#include "../catalogue/InstallerDigests.h"

#include <QJsonObject>
#include <QStringList>

#include <optional>

/// The folder of a static site:
///
///     installers/, replies/   the files, named after their contents
///     generations/N/          nginx.conf, locations.conf and site.json of the Nth site
///     current                 a symbolic link to the generation that counts
///
/// A site is put in place by renaming a new link over the old one.
class SiteFolder
{
public:
    explicit SiteFolder(const QString &path) : path_(path) {}

    /// The records of all sites that are kept, that of the current one first; none where there is
    /// no current one.
    QList<QJsonObject> records() const;
    int currentGeneration() const;
    /// Whether the site is the current one already.
    bool isCurrent(const SiteContents &site, const NginxConfig &config) const;

    /// The bytes of the installers that are not here yet.
    qint64 missingBytes(const SiteContents &site) const;

    /// Makes the site the current one. If that fails, the site before goes on. done is told of the
    /// missing bytes, of each twice.
    ZVPlatform::Result<void> publish(const SiteContents &site, const NginxConfig &config,
                                     const PieceDone &done);

    /// Makes the wanted generation the current one again, or the one before the current; unless it
    /// is only asked which one that is. If that fails, the current one goes on. One that announces
    /// what builds with release keys refuse fails, unless that is allowed.
    ZVPlatform::Result<int> goBack(std::optional<int> wanted, bool allowsUnsigned, bool isDryRun);

    /// Removes all but the newest generations, and the files that belong to none of those that
    /// stay. Says how many files went.
    qsizetype removeOld(int generationsToKeep);

private:
    QString generationPath(int number) const;
    /// In ascending order.
    QList<int> generations() const;
    ZVPlatform::Result<void> writeFiles(const SiteContents &site, const PieceDone &done);
    ZVPlatform::Result<void> check(int number, bool allowsUnsigned) const;
    ZVPlatform::Result<void> makeCurrent(int number);

    const QString path_;
};
