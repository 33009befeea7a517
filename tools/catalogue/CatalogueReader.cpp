#include "CatalogueReader.h"

#include "RegularFile.h"
#include "VersionOrder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>
#include <cerrno>
#include <system_error>

using Product = Catalogue::Product;
using Release = Catalogue::Release;
using namespace Qt::StringLiterals;

namespace {

/// The longest file name that common file systems take, in bytes.
constexpr qsizetype longestFileName = 255;

/// "products[0].releases[1].installer"
QString displayed(const JsonPath &path)
{
    QString result;
    for (const QString &step : path) {
        if (!step.isEmpty() && step.front().isDigit())
            result += u'[' + step + u']';
        else
            result += (result.isEmpty() ? QString() : u"."_s) + step;
    }
    return result;
}

bool isPlainFileName(const QString &name)
{
    return !name.contains(u'/') && !name.contains(QChar::Null) &&
           name.toUtf8().size() <= longestFileName;
}

} // namespace

std::optional<Catalogue> CatalogueReader::load(const QString &directory, QString *error)
{
    const auto json = contents(directory, error);
    if (!json)
        return std::nullopt;
    CatalogueReader reader(directory, *json);
    const auto products = reader.read();
    if (!products) {
        *error = Catalogue::path(directory) + u':' + reader.error();
        return std::nullopt;
    }
    return Catalogue(*products);
}

std::optional<QByteArray> CatalogueReader::contents(const QString &directory, QString *error)
{
    const FileDescriptor opened = RegularFile::open(Catalogue::path(directory));
    QFile file;
    if (opened.isOpen() && file.open(opened.get(), QIODevice::ReadOnly))
        return file.readAll();
    *error = QStringLiteral("%1: cannot be read: %2")
                 .arg(Catalogue::path(directory),
                      QString::fromStdString(std::generic_category().message(errno)));
    return std::nullopt;
}

CatalogueReader::CatalogueReader(const QString &directory, const QByteArray &json)
    : directory_(QFileInfo(directory).canonicalFilePath()), json_(json)
{
}

std::optional<QList<Product>> CatalogueReader::read()
{
    QJsonParseError failure;
    const QJsonDocument document = QJsonDocument::fromJson(json_, &failure);
    if (failure.error != QJsonParseError::NoError) {
        const auto position = JsonLocator(json_).positionAt(failure.offset);
        error_ = u"%1:%2: %3"_s.arg(position.line).arg(position.column).arg(failure.errorString());
        return std::nullopt;
    }
    if (!document.isObject()) {
        fail({}, u"the file must hold an object, {\"products\": […]}"_s);
        return std::nullopt;
    }
    const auto values = array(document.object(), {}, u"products"_s);
    if (!values)
        return std::nullopt;

    QList<Product> products;
    for (qsizetype i = 0; i < values->size(); ++i) {
        const auto product = readProduct(values->at(i), {u"products"_s, QString::number(i)});
        if (!product)
            return std::nullopt;
        products.append(*product);
    }
    return products;
}

std::optional<Product> CatalogueReader::readProduct(const QJsonValue &value, const JsonPath &path)
{
    const auto fields = object(value, path);
    const auto id = fields ? text(*fields, path, u"id"_s) : std::nullopt;
    if (!id)
        return std::nullopt;
    if (productIds_.contains(*id)) {
        fail(path + JsonPath{u"id"_s}, u"the product \"%1\" is listed twice"_s.arg(*id));
        return std::nullopt;
    }
    productIds_.insert(*id);
    const auto values = array(*fields, path, u"releases"_s);
    if (!values)
        return std::nullopt;

    Product product{*id, {}};
    for (qsizetype i = 0; i < values->size(); ++i) {
        const JsonPath releasePath = path + JsonPath{u"releases"_s, QString::number(i)};
        const auto release = readRelease(values->at(i), releasePath);
        if (!release || !addRelease(&product, *release, releasePath))
            return std::nullopt;
    }
    std::sort(product.releases.begin(), product.releases.end(),
              [](const Release &a, const Release &b) {
                  return compareVersions(a.version, b.version) < 0;
              });
    return product;
}

std::optional<Release> CatalogueReader::readRelease(const QJsonValue &value, const JsonPath &path)
{
    const auto fields = object(value, path);
    const auto version = fields ? text(*fields, path, u"version"_s) : std::nullopt;
    const auto installer = version ? text(*fields, path, u"installer"_s) : std::nullopt;
    if (!installer)
        return std::nullopt;
    Release release{*version, *installer, {}, {}};
    if (!readInstaller(*installer, path + JsonPath{u"installer"_s}, &release.installerPath) ||
        !readNotes(fields->value(u"notes"_s), path + JsonPath{u"notes"_s}, &release.notes))
        return std::nullopt;
    return release;
}

bool CatalogueReader::readNotes(const QJsonValue &value, const JsonPath &path,
                                QList<Catalogue::Note> *notes)
{
    if (value.isUndefined())
        return true;
    if (!value.isObject())
        return fail(path, u"must be an object of texts by language, {\"en\": \"…\"}"_s);
    const QJsonObject texts = value.toObject();
    for (auto note = texts.begin(); note != texts.end(); ++note) {
        if (!note.value().isString())
            return fail(path + JsonPath{note.key()}, u"must be a text in quotes"_s);
        notes->append({note.key(), note.value().toString()});
    }
    return true;
}

bool CatalogueReader::readInstaller(const QString &installer, const JsonPath &path,
                                    QString *absolute)
{
    if (QDir::isAbsolutePath(installer))
        return fail(path, u"must be relative to the folder of releases.json"_s);
    const QFileInfo file(directory_ + u'/' + installer);
    if (!file.exists())
        return fail(path, u"there is no file \"%1\""_s.arg(file.filePath()));
    if (!file.isFile())
        return fail(path, u"\"%1\" is not a file"_s.arg(file.filePath()));
    if (!file.isReadable())
        return fail(path, u"\"%1\" must not be read"_s.arg(file.filePath()));
    if (file.size() == 0)
        return fail(path, u"\"%1\" is empty"_s.arg(file.filePath()));
    *absolute = file.canonicalFilePath();
    if (!absolute->startsWith(directory_ + u'/'))
        return fail(path, u"\"%1\" lies outside the folder of releases.json"_s.arg(*absolute));
    return true;
}

bool CatalogueReader::addRelease(Product *product, const Release &release, const JsonPath &path)
{
    const JsonPath versionPath = path + JsonPath{u"version"_s};
    if (!hasNumber(release.version))
        return fail(versionPath, u"\"%1\" has no number to order it by"_s.arg(release.version));
    for (const Release &other : product->releases) {
        if (compareVersions(other.version, release.version) == 0)
            return fail(versionPath, u"version \"%1\" is listed before as \"%2\""_s.arg(
                                         release.version, other.version));
    }
    const QString fileName = Catalogue::clientFileName(product->id, release.version);
    if (!isPlainFileName(fileName))
        return fail(versionPath, u"clients would store the file as \"%1\", which is no plain file "
                                 "name (a slash, a NUL, or more than 255 bytes)"_s.arg(fileName));
    if (fileNames_.contains(fileName))
        return fail(versionPath,
                    u"another product's installer is called \"%1\" too"_s.arg(fileName));
    fileNames_.insert(fileName);
    product->releases.append(release);
    return true;
}

std::optional<QJsonObject> CatalogueReader::object(const QJsonValue &value, const JsonPath &path)
{
    if (value.isObject())
        return value.toObject();
    fail(path, u"must be an object in braces"_s);
    return std::nullopt;
}

std::optional<QJsonArray> CatalogueReader::array(const QJsonObject &owner, const JsonPath &path,
                                                 const QString &key)
{
    const QJsonValue value = owner.value(key);
    if (value.isArray())
        return value.toArray();
    if (value.isUndefined())
        fail(path, u"\"%1\" is missing"_s.arg(key));
    else
        fail(path + JsonPath{key}, u"must be a list in brackets"_s);
    return std::nullopt;
}

std::optional<QString> CatalogueReader::text(const QJsonObject &owner, const JsonPath &path,
                                             const QString &key)
{
    const QJsonValue value = owner.value(key);
    if (value.isString() && !value.toString().isEmpty())
        return value.toString();
    if (value.isUndefined())
        fail(path, u"\"%1\" is missing"_s.arg(key));
    else
        fail(path + JsonPath{key}, u"must be a text in quotes that is not empty"_s);
    return std::nullopt;
}

bool CatalogueReader::fail(const JsonPath &path, const QString &reason)
{
    const auto position = JsonLocator(json_).positionOf(path);
    const QString where = path.isEmpty() ? QString() : displayed(path) + u": "_s;
    error_ = u"%1:%2: "_s.arg(position.line).arg(position.column) + where + reason;
    return false;
}
