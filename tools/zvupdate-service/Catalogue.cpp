#include "Catalogue.h"

#include "CatalogueReader.h"
#include "RegularFile.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <system_error>

std::optional<Catalogue> Catalogue::load(const QString &directory, QString *error)
{
    const auto json = contents(directory, error);
    if (!json)
        return std::nullopt;
    CatalogueReader reader(directory, *json);
    const auto products = reader.read();
    if (!products) {
        *error = path(directory) + u':' + reader.error();
        return std::nullopt;
    }
    return Catalogue(*products);
}

std::optional<QByteArray> Catalogue::contents(const QString &directory, QString *error)
{
    const FileDescriptor opened = RegularFile::open(path(directory));
    QFile file;
    if (opened.isOpen() && file.open(opened.get(), QIODevice::ReadOnly))
        return file.readAll();
    *error =
        QStringLiteral("%1: cannot be read: %2")
            .arg(path(directory), QString::fromStdString(std::generic_category().message(errno)));
    return std::nullopt;
}

QString Catalogue::path(const QString &directory)
{
    return QDir(directory).filePath(QStringLiteral("releases.json"));
}

QString Catalogue::clientFileName(const QString &productId, const QString &version)
{
    return productId + u'_' + version + QStringLiteral(".exe");
}
