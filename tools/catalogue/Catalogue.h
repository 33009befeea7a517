#pragma once

#include <QList>
#include <QString>

/// What a folder of releases offers, as its releases.json says: a value, checked when read and not
/// changed afterwards.
class Catalogue
{
public:
    /// Release notes in one language.
    struct Note
    {
        QString language;
        QString memo;
    };

    struct Release
    {
        QString version;
        /// The installer as the catalogue names it, relative to the folder.
        QString installer;
        /// The same, absolute and free of symbolic links.
        QString installerPath;
        QList<Note> notes;
    };

    struct Product
    {
        QString id;
        /// Oldest first; no two of the same version.
        QList<Release> releases;
    };

    /// The catalogue file of a folder.
    static QString path(const QString &directory);

    /// The name under which clients ask for the installer of a product's version.
    static QString clientFileName(const QString &productId, const QString &version);

    explicit Catalogue(const QList<Product> &products) : products_(products) {}

    const QList<Product> &products() const { return products_; }

private:
    QList<Product> products_;
};
