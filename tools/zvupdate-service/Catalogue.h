#pragma once

#include <QList>
#include <QString>

#include <optional>

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

    /// Reads and checks directory's releases.json. Absent when it cannot be read, does not parse or
    /// says something that cannot be served; error is then one line with the file, the line and the
    /// reason. A catalogue without products, or a product without releases, is not an error.
    static std::optional<Catalogue> load(const QString &directory, QString *error);

    /// The catalogue file of a folder.
    static QString path(const QString &directory);

    /// What releases.json holds. Absent when it cannot be read; error is then one line.
    static std::optional<QByteArray> contents(const QString &directory, QString *error);

    /// The name under which clients ask for the installer of a product's version.
    static QString clientFileName(const QString &productId, const QString &version);

    const QList<Product> &products() const { return products_; }

private:
    explicit Catalogue(const QList<Product> &products) : products_(products) {}

    QList<Product> products_;
};
