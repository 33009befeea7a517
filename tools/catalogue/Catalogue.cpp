#include "Catalogue.h"

#include "RegularFile.h"
#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/platform/settings/VersionOrder.h>

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace Catalogue {

namespace {

/// Reads the products, and keeps the first thing that is wrong; what is read after that is of no
/// use.
class Reader
{
public:
    explicit Reader(const QString &directory)
        : directory_(QFileInfo(directory).canonicalFilePath() + u'/')
    {
    }

    QList<Product> read(const QJsonDocument &document)
    {
        expect(document.isObject(), {}, u"the file must hold an object, {\"products\": […]}"_s);
        QList<Product> products;
        const QJsonArray values = array(document.object(), {}, u"products"_s);
        for (qsizetype i = 0; i < values.size(); ++i)
            products.append(product(values[i], u"products[%1]"_s.arg(i)));
        return products;
    }

    /// Where in the structure and the reason; empty while nothing is wrong.
    const QString &error() const { return error_; }

private:
    Product product(const QJsonValue &value, const QString &path)
    {
        const QJsonObject fields = object(value, path);
        Product product{text(fields, path, u"id"_s)};
        expect(!productIds_.contains(product.id), path + u".id"_s,
               u"the product \"%1\" is listed twice"_s.arg(product.id));
        productIds_.insert(product.id);
        const QJsonArray values = array(fields, path, u"releases"_s);
        for (qsizetype i = 0; i < values.size(); ++i)
            add(&product, values[i], path + u".releases[%1]"_s.arg(i));
        std::sort(product.releases.begin(), product.releases.end(),
                  [](const Release &a, const Release &b) {
                      return compareVersions(a.version, b.version) < 0;
                  });
        for (const QString &list : {u"releases"_s, u"withdrawn"_s})
            addBuilds(&product, fields[list].toArray(), path + u'.' + list);
        sortBuilds(&product);
        return product;
    }

    // A version that was withdrawn has its users, too.
    void addBuilds(Product *product, const QJsonArray &records, const QString &path)
    {
        for (qsizetype i = 0; i < records.size(); ++i) {
            const QJsonObject fields = records[i].toObject();
            const QJsonValue value = fields[u"releaseKeys"_s];
            if (value.isUndefined())
                continue;
            QList<QByteArray> texts;
            const QStringList given = value.toVariant().toStringList();
            for (const QString &text : given)
                texts.append(text.toUtf8());
            const auto keys = ReleaseKeys::read(texts);
            if (keys)
                product->builds.append({fields[u"version"_s].toString(), *keys});
            else
                expect(false, path + u"[%1].releaseKeys"_s.arg(i), keys.error());
        }
    }

    static void sortBuilds(Product *product)
    {
        QList<Build> &builds = product->builds;
        std::sort(builds.begin(), builds.end(), [](const Build &a, const Build &b) {
            return compareVersions(a.version, b.version) < 0;
        });
        const auto isSameKey = [](const ReleaseKey &a, const ReleaseKey &b) {
            return a.bytes() == b.bytes();
        };
        const auto haveSameKeys = [&isSameKey](const Build &a, const Build &b) {
            const auto &keys = a.keys.keys();
            const auto &others = b.keys.keys();
            return std::equal(keys.begin(), keys.end(), others.begin(), others.end(), isSameKey);
        };
        builds.erase(std::unique(builds.begin(), builds.end(), haveSameKeys), builds.end());
    }

    void add(Product *product, const QJsonValue &value, const QString &path)
    {
        const QJsonObject fields = object(value, path);
        const QString version = text(fields, path, u"version"_s);
        const QString installer = text(fields, path, u"installer"_s);
        const Release release{version,
                              fileName(product->id, version),
                              filePath(installer, path + u".installer"_s),
                              notes(fields[u"notes"], path + u".notes"_s),
                              statement(fields[u"statement"], path + u".statement"_s),
                              fields[u"signatures"].toVariant().toStringList()};
        const QString versionPath = path + u".version"_s;
        expect(hasNumber(version), versionPath,
               u"\"%1\" has no number to order it by"_s.arg(version));
        for (const Release &other : product->releases)
            expect(compareVersions(other.version, version) != 0, versionPath,
                   u"version \"%1\" is listed before as \"%2\""_s.arg(version, other.version));
        expect(!release.fileName.isEmpty(), versionPath,
               u"clients would store the file as \"%1_%2.exe\", which is no plain file name (a "
               "slash, a NUL, or more than 255 bytes)"_s.arg(product->id, version));
        expect(!fileNames_.contains(release.fileName), versionPath,
               u"another product's installer is called \"%1\" too"_s.arg(release.fileName));
        fileNames_.insert(release.fileName);
        product->releases.append(release);
    }

    // Empty when clients would refuse it.
    static QString fileName(const QString &productId, const QString &version)
    {
        const auto files = UpdateFiles::named({}, productId, version);
        return files ? files->serviceFileName : QString();
    }

    QString filePath(const QString &name, const QString &path)
    {
        const QFileInfo file(directory_ + name);
        const auto expectOfFile = [&](bool isRight, const QString &reason) {
            expect(isRight, path, reason.arg(file.filePath()));
        };
        expect(!QDir::isAbsolutePath(name), path,
               u"must be relative to the folder of releases.json"_s);
        expectOfFile(file.exists(), u"there is no file \"%1\""_s);
        expectOfFile(file.isFile(), u"\"%1\" is not a file"_s);
        expectOfFile(file.isReadable(), u"\"%1\" must not be read"_s);
        expectOfFile(file.size() > 0, u"\"%1\" is empty"_s);
        const QString absolute = file.canonicalFilePath();
        expect(absolute.startsWith(directory_), path,
               u"\"%1\" lies outside the folder of releases.json"_s.arg(absolute));
        return absolute;
    }

    QByteArray statement(const QJsonValue &value, const QString &path)
    {
        if (value.isUndefined())
            return {};
        const auto bytes = RegularFile::read(filePath(value.toString(), path));
        return bytes ? *bytes : QByteArray();
    }

    QList<Note> notes(const QJsonValue &value, const QString &path)
    {
        expect(value.isObject() || value.isUndefined(), path,
               u"must be an object of texts by language, {\"en\": \"…\"}"_s);
        QList<Note> notes;
        const QJsonObject texts = value.toObject();
        for (auto note = texts.begin(); note != texts.end(); ++note) {
            expect(note.value().isString(), path + u'.' + note.key(),
                   u"must be a text in quotes"_s);
            notes.append({note.key(), note.value().toString()});
        }
        return notes;
    }

    QJsonObject object(const QJsonValue &value, const QString &path)
    {
        expect(value.isObject(), path, u"must be an object in braces"_s);
        return value.toObject();
    }

    QJsonArray array(const QJsonObject &owner, const QString &path, const QString &key)
    {
        return member(owner, path, key, &QJsonValue::isArray, u"must be a list in brackets"_s)
            .toArray();
    }

    QString text(const QJsonObject &owner, const QString &path, const QString &key)
    {
        const auto isFilled = [](const QJsonValue &value) { return !value.toString().isEmpty(); };
        return member(owner, path, key, isFilled, u"must be a text in quotes that is not empty"_s)
            .toString();
    }

    template <class Predicate>
    QJsonValue member(const QJsonObject &owner, const QString &path, const QString &key,
                      Predicate isRight, const QString &reason)
    {
        QJsonValue value = owner[key];
        expect(!value.isUndefined(), path, u"\"%1\" is missing"_s.arg(key));
        expect(std::invoke(isRight, value), path.isEmpty() ? key : path + u'.' + key, reason);
        return value;
    }

    void expect(bool isRight, const QString &path, const QString &reason)
    {
        if (!isRight && error_.isEmpty())
            error_ = path.isEmpty() ? reason : path + u": "_s + reason;
    }

    const QString directory_; // With a slash at its end.
    QString error_;
    QSet<QString> productIds_;
    QSet<QString> fileNames_;
};

// "LINE:COLUMN" of the byte at offset, both counted from 1.
QString position(const QByteArray &json, qsizetype offset)
{
    const QByteArray before = json.left(offset);
    const QString line = QString::fromUtf8(before.mid(before.lastIndexOf('\n') + 1));
    return u"%1:%2"_s.arg(before.count('\n') + 1).arg(line.size() + 1);
}

} // namespace

QString path(const QString &directory)
{
    return QDir(directory).filePath(u"releases.json"_s);
}

Result<QByteArray> contents(const QString &directory)
{
    auto bytes = RegularFile::read(path(directory));
    if (!bytes)
        return Failure{u"%1: cannot be read: %2"_s.arg(path(directory), bytes.error())};
    return bytes;
}

Result<QList<Product>> parse(const QString &directory, const QByteArray &json)
{
    QJsonParseError failure;
    const QJsonDocument document = QJsonDocument::fromJson(json, &failure);
    if (failure.error != QJsonParseError::NoError)
        return Failure{u"%1:%2: %3"_s.arg(path(directory), position(json, failure.offset),
                                          failure.errorString())};
    Reader reader(directory);
    const auto products = reader.read(document);
    if (!reader.error().isEmpty())
        return Failure{u"%1: %2"_s.arg(path(directory), reader.error())};
    return products;
}

Result<QList<Product>> load(const QString &directory)
{
    const auto json = contents(directory);
    return json ? parse(directory, *json) : Failure{json.error()};
}

} // namespace Catalogue
