#include "Catalogue.h"

#include <QDir>

QString Catalogue::path(const QString &directory)
{
    return QDir(directory).filePath(QStringLiteral("releases.json"));
}

QString Catalogue::clientFileName(const QString &productId, const QString &version)
{
    return productId + u'_' + version + QStringLiteral(".exe");
}
