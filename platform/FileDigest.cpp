#include "FileDigest.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

namespace ZVPlatform {

namespace {

constexpr auto algorithm = QCryptographicHash::Md5;
constexpr qint64 pieceSize = 1 << 20;

} // namespace

// The file is read, not mapped: the pages of a map count as the process's own, and touching those
// that another program has meanwhile cut off would end it.
QByteArray md5OfFile(const QString &path)
{
    QCryptographicHash hash(algorithm);
    QFile file(path);
    // Only a regular file is opened: opening a pipe would wait for its other end.
    if (path.contains(QChar(QChar::Null)) || !QFileInfo(path).isFile() ||
        !file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return hash.result();

    QByteArray piece(pieceSize, Qt::Uninitialized);
    auto left = static_cast<qint64>(static_cast<quint32>(file.size()));
    while (left > 0) {
        const qint64 length = file.read(piece.data(), qMin(left, pieceSize));
        if (length <= 0)
            break;
        hash.addData(QByteArrayView(piece.constData(), length));
        left -= length;
    }
    return hash.result();
}

} // namespace ZVPlatform
