#include "FileDigest.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

#include <openssl/evp.h>

namespace ZVPlatform {

namespace {

constexpr auto algorithm = QCryptographicHash::Md5;

// For the rare file system that cannot map files, and machines on which OpenSSL refuses MD5.
QByteArray md5ByReading(QFile &file, qint64 size)
{
    QCryptographicHash hash(algorithm);
    while (size > 0) {
        const QByteArray piece = file.read(qMin<qint64>(size, 1 << 20));
        if (piece.isEmpty())
            break;
        hash.addData(piece);
        size -= piece.size();
    }
    return hash.result();
}

} // namespace

QByteArray md5OfFile(const QString &path)
{
    const QByteArray digestOfNothing = QCryptographicHash::hash({}, algorithm);
    QFile file(path);
    // Only a regular file is opened: opening a pipe would wait for its other end.
    if (path.contains(QChar(QChar::Null)) || !QFileInfo(path).isFile() ||
        !file.open(QIODevice::ReadOnly))
        return digestOfNothing;

    const auto size = static_cast<qint64>(static_cast<quint32>(file.size()));
    if (size == 0)
        return digestOfNothing;
    // OpenSSL's MD5 is faster than Qt's by a tenth.
    QByteArray digest(16, Qt::Uninitialized);
    auto *const result = reinterpret_cast<unsigned char *>(digest.data());
    const uchar *bytes = file.map(0, size);
    if (bytes && EVP_Digest(bytes, static_cast<size_t>(size), result, nullptr, EVP_md5(), nullptr))
        return digest;
    return md5ByReading(file, size);
}

} // namespace ZVPlatform
