#pragma once

#include "../../platform/Result.h"
#include "../../release/ReleaseKeys.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/// What a folder of releases offers, as its releases.json says.
namespace Catalogue {

/// Release notes in one language.
struct Note
{
    QString language;
    QString memo;
};

struct Release
{
    QString version;
    /// The name under which clients ask for the installer.
    QString fileName;
    /// Where the installer lies: absolute and free of symbolic links.
    QString installerPath;
    QList<Note> notes;
    /// What the maker signs of it; empty where nothing is to be signed.
    QByteArray statement = {};
    /// The maker's signatures of that, in Base64.
    QStringList signatures = {};
};

/// A version that users have or will have, and the keys by which it tells the maker's signature.
struct Build
{
    QString version;
    ReleaseKeys keys;
};

struct Product
{
    QString id;
    /// Oldest first; no two of the same version.
    QList<Release> releases = {};
    /// The releases that demand a signature of what is newer, withdrawn ones among them, oldest
    /// first. Of several in a row that have the same keys only the first.
    QList<Build> builds = {};
};

/// The catalogue file of a folder.
QString path(const QString &directory);

/// What that file holds. A failure is one line, here and below.
ZVPlatform::Result<QByteArray> contents(const QString &directory);

/// The products in the contents of a folder's file. Fails at the first thing that does not parse or
/// cannot be served, and says where it is. No products, or a product without releases, are no
/// failure.
ZVPlatform::Result<QList<Product>> parse(const QString &directory, const QByteArray &json);

/// The products of a folder.
ZVPlatform::Result<QList<Product>> load(const QString &directory);

} // namespace Catalogue
