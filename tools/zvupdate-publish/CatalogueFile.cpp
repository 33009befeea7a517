#include "CatalogueFile.h"

#include "CatalogueOption.h"
#include "FilePlacing.h"

#include "../commands/Arguments.h"

#include <ZVUpdate/platform/settings/VersionOrder.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

QStringList texts(const QJsonValue &list)
{
    QStringList result;
    const QJsonArray values = list.toArray();
    for (const auto &value : values)
        result.append(value.toString());
    return result;
}

qsizetype indexOfMember(const QJsonArray &objects, const QString &member, const QString &value)
{
    const auto found = std::find_if(objects.begin(), objects.end(), [&](const QJsonValue &object) {
        return object.toObject().value(member).toString() == value;
    });
    return found == objects.end() ? -1 : found - objects.begin();
}

} // namespace

Result<CatalogueFile> CatalogueFile::open(const Arguments &arguments, IfMissing ifMissing)
{
    const QString directory = *arguments.value(u"catalogue"_s);
    if (arguments.isSet(u"dry-run"_s))
        return read(directory, ifMissing);
    auto lock = CatalogueOption::lock(directory);
    if (!lock)
        return Failure{lock.error()};
    auto catalogue = read(directory, ifMissing);
    if (catalogue) {
        catalogue->lock_ = *std::move(lock);
        catalogue->removeUnfinished();
    }
    return catalogue;
}

Result<CatalogueFile> CatalogueFile::read(const QString &directory, IfMissing ifMissing)
{
    CatalogueFile result;
    result.directory_ = QFileInfo(directory).canonicalFilePath();
    if (!QFileInfo(directory).isDir())
        return Failure{
            u"%1: is not a folder; make it, or give --catalogue another"_s.arg(directory)};
    if (result.directory_.isEmpty())
        return Failure{u"%1: the current directory has gone; give --catalogue an absolute "
                       "path"_s.arg(directory)};
    if (!QFileInfo::exists(Catalogue::path(directory)) && ifMissing == IfMissing::Empty)
        return result;
    const auto json = Catalogue::contents(directory);
    if (!json)
        return Failure{json.error()};
    const auto products = Catalogue::parse(directory, *json);
    if (!products)
        return Failure{products.error()};
    result.root_ = QJsonDocument::fromJson(*json).object();
    result.products_ = *products;
    const QJsonArray records = result.root_.value(u"products"_s).toArray();
    for (const auto &record : records)
        result.productRecords_.insert(record.toObject().value(u"id"_s).toString(),
                                      record.toObject());
    return result;
}

const Catalogue::Product *CatalogueFile::product(const QString &id) const
{
    const auto found = std::find_if(products_.begin(), products_.end(),
                                    [&id](const auto &product) { return product.id == id; });
    return found == products_.end() ? nullptr : &*found;
}

QJsonObject CatalogueFile::record(const QString &productId, const QString &version) const
{
    const QJsonArray releases = productRecords_.value(productId).value(u"releases"_s).toArray();
    return releases.at(indexOfMember(releases, u"version"_s, version)).toObject();
}

QStringList CatalogueFile::withdrawn(const QString &productId) const
{
    return texts(productRecords_.value(productId).value(u"withdrawn"_s));
}

QStringList CatalogueFile::outdated(const Catalogue::Product &product) const
{
    if (product.releases.isEmpty())
        return {};
    QStringList versions = withdrawn(product.id);
    for (const Catalogue::Release &release : product.releases)
        versions += QStringList(release.version) +
                    texts(record(product.id, release.version).value(u"supersedes"_s));
    versions.removeDuplicates();
    const QString newest = product.releases.last().version;
    versions.removeIf(
        [&newest](const QString &version) { return compareVersions(version, newest) >= 0; });
    std::sort(versions.begin(), versions.end(),
              [](const QString &a, const QString &b) { return compareVersions(a, b) < 0; });
    return versions;
}

QStringList CatalogueFile::current(const Catalogue::Product &product) const
{
    QStringList versions = withdrawn(product.id);
    const QStringList older = outdated(product);
    versions.removeIf([&older](const QString &version) { return older.contains(version); });
    if (!product.releases.isEmpty())
        versions.prepend(product.releases.last().version);
    return versions;
}

void CatalogueFile::add(const QString &productId, const QJsonObject &release)
{
    QJsonObject product = productRecords_.value(productId);
    QJsonArray releases = product.value(u"releases"_s).toArray();
    releases.append(release);
    product.insert(u"id"_s, productId);
    product.insert(u"releases"_s, releases);
    QStringList withdrawnBefore = withdrawn(productId);
    if (withdrawnBefore.removeAll(release.value(u"version"_s).toString()) > 0)
        product.insert(u"withdrawn"_s, QJsonArray::fromStringList(withdrawnBefore));
    setProductRecord(productId, product);
}

void CatalogueFile::withdraw(const QString &productId, const QString &version)
{
    QJsonObject product = productRecords_.value(productId);
    QJsonArray releases = product.value(u"releases"_s).toArray();
    // What the release has superseded is still out there.
    const QStringList gone =
        QStringList(version) + texts(record(productId, version).value(u"supersedes"_s));
    releases.removeAt(indexOfMember(releases, u"version"_s, version));
    product.insert(u"releases"_s, releases);
    product.insert(u"withdrawn"_s, QJsonArray::fromStringList(withdrawn(productId) + gone));
    setProductRecord(productId, product);
}

// What runs that were killed have left of installers that they were copying here.
void CatalogueFile::removeUnfinished() const
{
    QStringList kept;
    for (const Catalogue::Product &product : products_) {
        for (const Catalogue::Release &release : product.releases)
            kept.append(release.installerPath);
    }
    const QDir folder(directory_ + u"/installers"_s);
    const auto files = folder.entryInfoList({u'*' + FilePlacing::unfinishedSuffix}, QDir::Files);
    for (const QFileInfo &file : files) {
        if (!kept.contains(file.canonicalFilePath()))
            QFile::remove(file.filePath());
    }
}

Result<void> CatalogueFile::save() const
{
    const QByteArray json = QJsonDocument(root_).toJson();
    if (const auto products = Catalogue::parse(directory_, json); !products)
        return Failure{
            u"not changed, since clients could not be served: %1"_s.arg(products.error())};
    QSaveFile file(Catalogue::path(directory_));
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit())
        return Failure{u"%1: cannot be written: %2; the file is as it was"_s.arg(
            file.fileName(), file.errorString())};
    return {};
}

void CatalogueFile::setProductRecord(const QString &productId, const QJsonObject &record)
{
    QJsonArray products = root_.value(u"products"_s).toArray();
    const qsizetype index = indexOfMember(products, u"id"_s, productId);
    if (index < 0)
        products.append(record);
    else
        products.replace(index, record);
    root_.insert(u"products"_s, products);
}
