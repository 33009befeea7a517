#pragma once

#include "NginxConfig.h"
#include "SiteContents.h"

#include <QJsonObject>
#include <QStringList>

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

    /// The record of the current site; empty when there is none.
    QJsonObject currentRecord() const;
    int currentGeneration() const;
    /// Whether the site is the current one already.
    bool isCurrent(const SiteContents &site, const NginxConfig &config) const;

    /// Makes the site the current one. If that fails, the site before goes on.
    ZVPlatform::Result<void> publish(const SiteContents &site, const NginxConfig &config);

    /// Removes all but the newest generations, and the files that belong to none of those that
    /// stay. Says how many files went.
    qsizetype removeOld(int generationsToKeep);

private:
    QString generationPath(int number) const;
    /// In ascending order.
    QList<int> generations() const;
    ZVPlatform::Result<void> writeFiles(const SiteContents &site);
    ZVPlatform::Result<void> makeCurrent(int number);

    const QString path_;
};
