#include "InstallerDigests.h"

#include "RegularFile.h"

#include <QCryptographicHash>
#include <QFile>

#include <algorithm>

namespace {

// Clients count a file's bytes in 32 bits, and check only so many.
qint64 verifiedBytes(qint64 size)
{
    return static_cast<quint32>(size);
}

QString hex(const QCryptographicHash &hash)
{
    return QString::fromLatin1(hash.result().toHex());
}

// Hands over as many of a file's first bytes as the function says for its size.
bool readPieces(const QString &path, const std::function<qint64(qint64 size)> &bytesOf,
                const std::function<void(const QByteArray &)> &take)
{
    const FileDescriptor opened = RegularFile::openWithoutLinks(path);
    QFile file;
    if (!opened.isOpen() || !file.open(opened.get(), QIODevice::ReadOnly))
        return false;
    constexpr qint64 pieceSize = 1 << 20;
    qint64 left = bytesOf(file.size());
    while (left > 0) {
        // Read, not mapped: a build that truncates its installer must not take the service down.
        const QByteArray piece = file.read(std::min(left, pieceSize));
        if (piece.isEmpty())
            return false;
        take(piece);
        left -= piece.size();
    }
    return true;
}

} // namespace

std::optional<FileStamp> FileStamp::of(const QString &path)
{
    const std::filesystem::path name(QFile::encodeName(path).toStdString());
    std::error_code failure;
    const auto size = std::filesystem::file_size(name, failure);
    if (failure)
        return std::nullopt;
    const auto modified = std::filesystem::last_write_time(name, failure);
    if (failure)
        return std::nullopt;
    return FileStamp{size, modified};
}

std::optional<QString> InstallerDigests::md5(const QString &path, const PieceDone &done)
{
    // Taken before the reading: a file that changes meanwhile is read again the next time.
    const auto stamp = FileStamp::of(path);
    if (const Both digests = known(path, stamp); !digests.md5.isEmpty())
        return digests.md5;

    QCryptographicHash hash(QCryptographicHash::Md5);
    const bool isRead = readPieces(path, verifiedBytes, [&](const QByteArray &piece) {
        hash.addData(piece);
        if (done)
            done(piece.size());
    });
    if (!isRead)
        return std::nullopt;
    QString md5 = hex(hash);
    entries_.insert(path, {stamp, {md5, QString()}});
    return md5;
}

std::optional<InstallerDigests::Both> InstallerDigests::bothOnce(const QString &path)
{
    const auto stamp = FileStamp::of(path);
    if (Both digests = known(path, stamp); !digests.sha256.isEmpty())
        return digests;
    auto digests = both(path, {});
    if (digests)
        entries_.insert(path, {stamp, *digests});
    return digests;
}

std::optional<InstallerDigests::Both> InstallerDigests::both(const QString &path,
                                                             const PieceDone &done)
{
    QCryptographicHash md5(QCryptographicHash::Md5);
    QCryptographicHash sha256(QCryptographicHash::Sha256);
    qint64 leftOfMd5 = 0;
    const auto wholeSize = [&leftOfMd5](qint64 size) {
        leftOfMd5 = verifiedBytes(size);
        return size;
    };
    const bool isRead = readPieces(path, wholeSize, [&](const QByteArray &piece) {
        const QByteArray verified = piece.left(leftOfMd5);
        leftOfMd5 -= verified.size();
        md5.addData(verified);
        sha256.addData(piece);
        if (done)
            done(piece.size());
    });
    return isRead ? std::optional(Both{hex(md5), hex(sha256)}) : std::nullopt;
}

InstallerDigests::Both InstallerDigests::known(const QString &path,
                                               const std::optional<FileStamp> &stamp) const
{
    const auto entry = entries_.constFind(path);
    return entry != entries_.constEnd() && stamp && entry->stamp == stamp ? entry->digests : Both();
}
