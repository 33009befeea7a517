#pragma once

#include "CatalogueFile.h"

#include "../catalogue/InstallerDigests.h"

#include <QDateTime>
#include <QJsonObject>
#include <QMap>

#include <optional>

/// What a static site of a catalogue consists of. There is no nonce in what clients ask, so that
/// all they can ask is known beforehand: it maps each sealed command to the file that answers it.
///
/// Files are named after their contents by paths that begin with a slash. A name therefore never
/// comes to mean something else, and sites of different states share their files.
struct SiteContents
{
    struct InstallerFile
    {
        QString path;
        QString sha256;
    };

    /// Every client gets the same token. It opens nothing and expires never; it only stands in the
    /// download commands, and changes when an installer has been replaced under the same name, so
    /// that caches do not mix the two.
    QString token;
    /// Files by sealed command: of those that are asked with POST, and of downloads.
    QMap<QString, QString> replies;
    QMap<QString, QString> downloads;
    /// The reply to everything else.
    QString defaultReply;
    QMap<QString, QByteArray> replyFiles;
    /// The catalogue's files by name of the site's.
    QMap<QString, InstallerFile> installerFiles;
    /// Files by the names that clients ask for.
    QMap<QString, QString> installerNames;
    /// Likewise, of other sites with the same token, for names that are not here.
    QMap<QString, QString> retiredNames;
    /// The releases announced that builds with release keys refuse.
    QStringList refused;
    /// When they begin to refuse the first of the others.
    std::optional<QDateTime> expires;

    /// Reads the installers of a catalogue's products, as they are offered, and tells done of each
    /// piece. previous are the record()s of sites that clients may have got answers from, that of
    /// the current one first.
    static ZVPlatform::Result<SiteContents> of(const CatalogueFile &catalogue,
                                               const QList<Catalogue::Product> &offered,
                                               const QList<QJsonObject> &previous,
                                               const PieceDone &done);
    /// How many bytes that reads.
    static qint64 bytesToRead(const QList<Catalogue::Product> &offered);

    /// What is kept of it beside the site.
    QJsonObject record() const;
    /// The files of the site with that record.
    static QStringList filesOf(const QJsonObject &record);
    /// Why builds with release keys refuse what the site with that record announces, as half a
    /// sentence; absent when they take it.
    static std::optional<QString> refusal(const QJsonObject &record);
};
