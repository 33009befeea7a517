#include "Catalogue.h"

#include "CatalogueReader.h"

#include <QDir>
#include <QFile>

std::optional<Catalogue> Catalogue::load(const QString &directory, QString *error)
{
    QFile file(path(directory));
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: cannot be read: %2").arg(file.fileName(), file.errorString());
        return std::nullopt;
    }
    CatalogueReader reader(directory, file.readAll());
    const auto products = reader.read();
    if (!products) {
        *error = file.fileName() + u':' + reader.error();
        return std::nullopt;
    }
    return Catalogue(*products);
}

QString Catalogue::path(const QString &directory)
{
    return QDir(directory).filePath(QStringLiteral("releases.json"));
}

QString Catalogue::clientFileName(const QString &productId, const QString &version)
{
    return productId + u'_' + version + QStringLiteral(".exe");
}
