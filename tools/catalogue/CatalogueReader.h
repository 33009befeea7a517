#pragma once

#include "Catalogue.h"
#include "JsonLocator.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSet>

#include <optional>

/// Reads the text of a releases.json. Stops at the first thing that is wrong and says where it is.
class CatalogueReader
{
public:
    /// Reads and checks directory's releases.json. Absent when it cannot be read, does not parse or
    /// says something that cannot be served; error is then one line with the file, the line and the
    /// reason. A catalogue without products, or a product without releases, is not an error.
    static std::optional<Catalogue> load(const QString &directory, QString *error);

    /// What releases.json holds. Absent when it cannot be read; error is then one line.
    static std::optional<QByteArray> contents(const QString &directory, QString *error);

    CatalogueReader(const QString &directory, const QByteArray &json);

    /// Absent when something is wrong; error() then tells.
    std::optional<QList<Catalogue::Product>> read();

    /// "line:column: " followed by where in the structure and the reason.
    const QString &error() const { return error_; }

private:
    std::optional<Catalogue::Product> readProduct(const QJsonValue &value, const JsonPath &path);
    std::optional<Catalogue::Release> readRelease(const QJsonValue &value, const JsonPath &path);
    bool readNotes(const QJsonValue &value, const JsonPath &path, QList<Catalogue::Note> *notes);
    bool readInstaller(const QString &installer, const JsonPath &path, QString *absolute);
    bool addRelease(Catalogue::Product *product, const Catalogue::Release &release,
                    const JsonPath &path);

    std::optional<QJsonObject> object(const QJsonValue &value, const JsonPath &path);
    std::optional<QJsonArray> array(const QJsonObject &owner, const JsonPath &path,
                                    const QString &key);
    std::optional<QString> text(const QJsonObject &owner, const JsonPath &path, const QString &key);
    /// Remembers what is wrong; false, for the caller to return.
    bool fail(const JsonPath &path, const QString &reason);

    const QString directory_;
    const QByteArray json_;
    QString error_;
    QSet<QString> productIds_;
    QSet<QString> fileNames_;
};
