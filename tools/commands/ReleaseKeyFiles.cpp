#include "ReleaseKeyFiles.h"

#include "../../release/ReleaseKeys.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr qint64 longestKeyFile = 1024 * 1024; // bytes; no key is as long

} // namespace

Result<QList<QByteArray>> readReleaseKeyFiles(const QStringList &paths)
{
    QList<QByteArray> texts;
    for (const QString &path : paths) {
        QFile file(path);
        if (!QFileInfo(path).isFile()) // A pipe would wait for its other end.
            return Failure{u"--release-key: %1 is no file; give that of a public key"_s.arg(path)};
        if (!file.open(QIODevice::ReadOnly))
            return Failure{u"--release-key: %1 cannot be read: %2"_s.arg(path, file.errorString())};
        texts.append(file.read(longestKeyFile));
        if (const auto key = ReleaseKey::read(texts.constLast()); !key)
            return Failure{
                u"--release-key: %1 %2; give the file of a public key"_s.arg(path, key.error())};
    }
    if (texts.size() > ReleaseKeys::most)
        return Failure{u"--release-key: there are %1 keys; give %2 at most"_s.arg(texts.size())
                           .arg(ReleaseKeys::most)};
    return texts;
}
