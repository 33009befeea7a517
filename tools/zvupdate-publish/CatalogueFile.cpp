#include "CatalogueFile.h"

#include "CatalogueHistory.h"
#include "CatalogueOption.h"
#include "FilePlacing.h"
#include "ReleaseRecord.h"

#include "../catalogue/Signing.h"
#include "../commands/Arguments.h"

#include <ZVUpdate/platform/settings/VersionOrder.h>
#include <ZVUpdate/release/ReleaseStatement.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

// Of a release's record, or of what stands for one that was withdrawn.
QString versionOf(const QJsonValue &release)
{
    return release.isString() ? release.toString()
                              : release.toObject().value(u"version"_s).toString();
}

qsizetype indexOfVersion(const QJsonArray &releases, const QString &version)
{
    const auto found =
        std::find_if(releases.begin(), releases.end(), [&version](const QJsonValue &release) {
            return versionOf(release) == version;
        });
    return found == releases.end() ? -1 : found - releases.begin();
}

bool isStatedSize(const Catalogue::Release &release, qint64 size)
{
    const auto statement = ReleaseStatement::read(release.statement);
    return !statement || statement->size == static_cast<quint64>(size);
}

bool isUnchanged(const QJsonObject &record, const Catalogue::Release &release,
                 const InstallerDigests::Both &digests)
{
    const qint64 size = QFileInfo(release.installerPath).size();
    const auto statement = ReleaseStatement::read(release.statement);
    if (statement && QString::fromLatin1(statement->sha256.toHex()) != digests.sha256)
        return false;
    const QJsonValue sizeBefore = record.value(u"size"_s);
    const QJsonValue md5 = record.value(u"md5"_s);
    return isStatedSize(release, size) &&
           (sizeBefore.isUndefined() || sizeBefore.toInteger() == size) &&
           (md5.isUndefined() || md5.toString() == digests.md5);
}

// The installers and statements that a state of the catalogue names.
QStringList filesOf(const QByteArray &state)
{
    QStringList files;
    const QJsonArray products =
        QJsonDocument::fromJson(state).object().value(u"products"_s).toArray();
    for (const auto &product : products) {
        QJsonArray releases = product.toObject().value(u"releases"_s).toArray();
        const QJsonArray withdrawn = product.toObject().value(u"withdrawn"_s).toArray();
        for (const auto &release : withdrawn)
            releases.append(release);
        for (const auto &release : std::as_const(releases))
            files += {release.toObject().value(u"installer"_s).toString(),
                      release.toObject().value(u"statement"_s).toString()};
    }
    return files;
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
    if (!QFileInfo(directory).isDir())
        return Failure{
            u"%1: is not a folder; make it, or give --catalogue another"_s.arg(directory)};
    if (QFileInfo(directory).canonicalFilePath().isEmpty())
        return Failure{u"%1: the current directory has gone; give --catalogue an absolute "
                       "path"_s.arg(directory)};
    if (!QFileInfo::exists(Catalogue::path(directory)) && ifMissing == IfMissing::Empty)
        return parse(directory, "{\"products\": []}\n");
    const auto json = Catalogue::contents(directory);
    return json ? parse(directory, *json) : Failure{json.error()};
}

Result<CatalogueFile> CatalogueFile::parse(const QString &directory, const QByteArray &json)
{
    const auto products = Catalogue::parse(directory, json);
    if (!products)
        return Failure{products.error()};
    CatalogueFile result;
    result.directory_ = QFileInfo(directory).canonicalFilePath();
    result.json_ = json;
    result.root_ = QJsonDocument::fromJson(json).object();
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

Result<const Catalogue::Release *> CatalogueFile::release(const QString &productId,
                                                          const QString &version) const
{
    const auto *product = this->product(productId);
    if (!product)
        return Failure{u"--product-id: there is no product \"%1\"; see \"zvupdate-publish "
                       "list\""_s.arg(productId)};
    for (const auto &release : product->releases) {
        if (release.version == version)
            return &release;
    }
    if (version.isEmpty())
        return Failure{u"--product-id: there is no release of \"%1\"; see \"zvupdate-publish "
                       "list\""_s.arg(productId)};
    if (withdrawn(productId).contains(version))
        return Failure{u"--version: version %1 of \"%2\" is withdrawn already; see "
                       "\"zvupdate-publish list\""_s.arg(version, productId)};
    return Failure{u"--version: there is no version %1 of \"%2\"; see \"zvupdate-publish "
                   "list\""_s.arg(version, productId)};
}

QJsonObject CatalogueFile::record(const QString &productId, const QString &version) const
{
    for (const QString &list : {u"releases"_s, u"withdrawn"_s}) {
        const QJsonArray releases = productRecords_.value(productId).value(list).toArray();
        if (const qsizetype index = indexOfVersion(releases, version); index >= 0)
            return releases.at(index).toObject();
    }
    return {};
}

QJsonObject CatalogueFile::described(const Catalogue::Product &product,
                                     const Catalogue::Release &release) const
{
    QJsonObject result = record(product.id, release.version);
    result.insert(u"product"_s, product.id);
    const qint64 size = QFileInfo(release.installerPath).size();
    result.insert(u"size"_s, size);
    const Catalogue::Release *newest = Signing::newest(product);
    result.insert(u"newest"_s, newest && newest->version == release.version);
    result.insert(u"signedBy"_s, QJsonArray::fromStringList(Signing::signers(product, release)));
    if (const auto refused = Signing::refusal(product, release))
        result.insert(u"refused"_s, *refused);
    else if (!isStatedSize(release, size))
        result.insert(u"refused"_s, u"its installer is not the one of which the statement is"_s);
    return result;
}

Result<InstallerDigests::Both> CatalogueFile::digests(const QString &productId,
                                                      const Catalogue::Release &release,
                                                      const PieceDone &done) const
{
    const QString &path = release.installerPath;
    const auto digests = InstallerDigests::both(path, done);
    if (!digests)
        return Failure{u"%1: cannot be read; make it readable"_s.arg(path)};
    if (!isUnchanged(record(productId, release.version), release, *digests))
        return Failure{u"%1: is not the file that was added; put that back, or withdraw the "
                       "release and add the file as a new version"_s.arg(path)};
    return *digests;
}

QStringList CatalogueFile::withdrawn(const QString &productId) const
{
    QStringList versions;
    const QJsonArray gone = productRecords_.value(productId).value(u"withdrawn"_s).toArray();
    for (const auto &release : gone)
        versions.append(versionOf(release));
    return versions;
}

QStringList CatalogueFile::outdated(const Catalogue::Product &product) const
{
    if (product.releases.isEmpty())
        return {};
    QStringList versions = knownVersions(product.id);
    const QString newest = product.releases.last().version;
    versions.removeIf(
        [&newest](const QString &version) { return compareVersions(version, newest) >= 0; });
    std::sort(versions.begin(), versions.end(),
              [](const QString &a, const QString &b) { return compareVersions(a, b) < 0; });
    return versions;
}

QStringList CatalogueFile::current(const Catalogue::Product &product) const
{
    QStringList versions = knownVersions(product.id);
    const QStringList older = outdated(product);
    versions.removeIf([&older](const QString &version) { return older.contains(version); });
    if (!product.releases.isEmpty())
        versions.prepend(product.releases.last().version);
    versions.removeDuplicates();
    return versions;
}

std::optional<QString> CatalogueFile::installer(const QString &productId,
                                                const QString &version) const
{
    return within(record(productId, version).value(u"installer"_s).toString());
}

QSet<QString> CatalogueFile::keptFiles() const
{
    QSet<QString> kept;
    const QList<QByteArray> states = CatalogueHistory(directory_).states() + QList{json_};
    for (const QByteArray &state : states) {
        const QStringList files = filesOf(state);
        for (const QString &file : files) {
            if (const auto path = within(file))
                kept.insert(*path);
        }
    }
    return kept;
}

void CatalogueFile::add(const QString &productId, const QJsonObject &release)
{
    QJsonObject product = productRecords_.value(productId);
    QJsonObject fresh = release;
    QJsonArray gone = product.value(u"withdrawn"_s).toArray();
    const QString version = versionOf(release);
    if (const qsizetype index = indexOfVersion(gone, version); index >= 0) {
        QStringList superseded = ReleaseRecord::superseded(release) +
                                 ReleaseRecord::superseded(gone.at(index).toObject());
        superseded.removeDuplicates();
        if (!superseded.isEmpty())
            fresh.insert(u"supersedes"_s, QJsonArray::fromStringList(superseded));
        gone.removeAt(index);
        product.insert(u"withdrawn"_s, gone);
    }
    QJsonArray releases = product.value(u"releases"_s).toArray();
    releases.append(fresh);
    product.insert(u"id"_s, productId);
    product.insert(u"releases"_s, releases);
    setProductRecord(productId, product);
}

void CatalogueFile::withdraw(const QString &productId, const QString &version)
{
    QJsonObject product = productRecords_.value(productId);
    QJsonArray releases = product.value(u"releases"_s).toArray();
    QJsonArray gone = product.value(u"withdrawn"_s).toArray();
    gone.append(releases.takeAt(indexOfVersion(releases, version)));
    product.insert(u"releases"_s, releases);
    product.insert(u"withdrawn"_s, gone);
    setProductRecord(productId, product);
}

void CatalogueFile::setRecord(const QString &productId, const QString &version,
                              const QJsonObject &record)
{
    QJsonObject product = productRecords_.value(productId);
    for (const QString &list : {u"releases"_s, u"withdrawn"_s}) {
        QJsonArray releases = product.value(list).toArray();
        const qsizetype index = indexOfVersion(releases, version);
        if (index < 0)
            continue;
        releases.replace(index, record);
        product.insert(list, releases);
        return setProductRecord(productId, product);
    }
}

Result<void> CatalogueFile::save() const
{
    const QByteArray json = QJsonDocument(root_).toJson();
    const auto products = Catalogue::parse(directory_, json);
    auto saved = products ? CatalogueHistory(directory_).change(json_, json)
                          : Failure{u"not changed, since clients could not be served: %1"_s.arg(
                                products.error())};
    if (!saved)
        removeUnfinished();
    return saved;
}

std::optional<QString> CatalogueFile::within(const QString &installer) const
{
    const QFileInfo file(directory_ + u'/' + installer);
    const QString path = file.canonicalFilePath();
    return file.isFile() && path.startsWith(directory_ + u'/') ? std::optional(path) : std::nullopt;
}

// Releases, withdrawn ones among them, and what they have superseded, which is still out there.
QStringList CatalogueFile::knownVersions(const QString &productId) const
{
    QStringList versions = withdrawn(productId);
    const QJsonArray releases = productRecords_.value(productId).value(u"releases"_s).toArray();
    for (const auto &release : releases)
        versions.append(versionOf(release));
    const QStringList released = versions;
    for (const QString &version : released)
        versions += ReleaseRecord::superseded(record(productId, version));
    versions.removeDuplicates();
    return versions;
}

// What runs that were killed, or failed, have left here: of installers that they were copying, and
// statements that they had written before they entered them.
void CatalogueFile::removeUnfinished() const
{
    const QDir folder(directory_ + u"/installers"_s);
    const auto files =
        folder.entryInfoList({u'*' + FilePlacing::unfinishedSuffix, u"*.statement"_s}, QDir::Files);
    if (files.isEmpty())
        return;
    const QSet<QString> kept = keptFiles();
    for (const QFileInfo &file : files) {
        if (!kept.contains(file.canonicalFilePath()))
            QFile::remove(file.filePath());
    }
}

void CatalogueFile::setProductRecord(const QString &productId, const QJsonObject &record)
{
    productRecords_.insert(productId, record);
    QJsonArray products = root_.value(u"products"_s).toArray();
    const auto known =
        std::find_if(products.begin(), products.end(), [&productId](const QJsonValue &product) {
            return product.toObject().value(u"id"_s).toString() == productId;
        });
    if (known == products.end())
        products.append(record);
    else
        *known = record;
    root_.insert(u"products"_s, products);
}
