#include "InstallerCheck.h"

#include "../../platform/files/InstallerKind.h"
#include "../catalogue/InstallerDigests.h"
#include <ZVUpdate/platform/settings/VersionOrder.h>

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr qint64 suspiciousShare = 10; // A tenth of the size before, or less.

InstallerKind kindOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? installerKind(file) : InstallerKind::Unknown;
}

// "a Debian package", without what opens it.
QString nameOf(InstallerKind kind)
{
    static const QRegularExpression end(u"[,;]"_s);
    return installerOpener(kind).section(end, 0, 0);
}

bool isSameFile(const QJsonObject &record, const std::optional<QString> &path, qint64 size,
                const QString &md5)
{
    const QString recorded = record.value(u"md5"_s).toString();
    if (!recorded.isEmpty())
        return recorded == md5 && record.value(u"size"_s).toInteger(size) == size;
    return path && QFileInfo(*path).size() == size && InstallerDigests().md5(*path) == md5;
}

QStringList differences(const QString &path, const Catalogue::Release &before)
{
    QStringList result;
    const InstallerKind kind = kindOf(path);
    const InstallerKind kindBefore = kindOf(before.installerPath);
    if (kind != kindBefore)
        result.append(
            u"is %1, and %2 is %3"_s.arg(nameOf(kind), before.version, nameOf(kindBefore)));
    const qint64 size = QFileInfo(path).size();
    const qint64 sizeBefore = QFileInfo(before.installerPath).size();
    if (size <= sizeBefore / suspiciousShare)
        result.append(u"is of %1 bytes, and %2 is of %3"_s.arg(
            QString::number(size), before.version, QString::number(sizeBefore)));
    return result;
}

} // namespace

Result<void> InstallerCheck::check(const QString &path)
{
    const QFileInfo file(path);
    if (!file.isFile() || !file.isReadable())
        return Failure{u"--installer: %1 cannot be read; give a file"_s.arg(path)};
    if (file.size() == 0)
        return Failure{u"--installer: %1 is empty; give the installer"_s.arg(path)};
    return {};
}

// They count a file's bytes in 32 bits, and MD5 covers only so many: of 4 GiB and a byte the one
// byte.
std::optional<QString> InstallerCheck::sizeDoubt(const QString &path)
{
    const qint64 size = QFileInfo(path).size();
    if (size <= std::numeric_limits<quint32>::max())
        return std::nullopt;
    return u"%1 has 4 GiB or more, of which clients verify only the first %2 bytes"_s.arg(path).arg(
        static_cast<quint32>(size));
}

QStringList InstallerCheck::doubts(const QString &path, const QString &md5, const QString &version,
                                   const CatalogueFile &catalogue,
                                   const Catalogue::Product &product)
{
    QStringList result;
    const qint64 size = QFileInfo(path).size();
    QStringList others = catalogue.withdrawn(product.id);
    for (const Catalogue::Release &release : product.releases)
        others.append(release.version);
    others.removeAll(version);
    for (const QString &other : std::as_const(others)) {
        if (isSameFile(catalogue.record(product.id, other), catalogue.installer(product.id, other),
                       size, md5))
            result.append(u"is the installer of version %1"_s.arg(other));
    }
    const auto isOlder = [&version](const Catalogue::Release &release) {
        return compareVersions(release.version, version) < 0;
    };
    const auto before = std::find_if(product.releases.rbegin(), product.releases.rend(), isOlder);
    if (before != product.releases.rend())
        result += differences(path, *before);
    return result;
}
