#include "FileDigests.h"

#include "RegularFile.h"

#include <QCryptographicHash>
#include <QFile>

#include <algorithm>

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

std::optional<QString> FileDigests::md5(const QString &path)
{
    // Taken before the reading: a file that changes meanwhile is read again the next time.
    const auto stamp = FileStamp::of(path);
    if (const auto known = entries_.constFind(path);
        known != entries_.constEnd() && stamp && known->stamp == stamp)
        return known->md5;

    const FileDescriptor opened = RegularFile::openWithoutLinks(path);
    QFile file;
    if (!opened.isOpen() || !file.open(opened.get(), QIODevice::ReadOnly))
        return std::nullopt;
    QCryptographicHash hash(QCryptographicHash::Md5);
    constexpr qint64 pieceSize = 1 << 20;
    // Clients count a file's bytes in 32 bits, and check only so many.
    qint64 left = static_cast<quint32>(file.size());
    while (left > 0) {
        // Read, not mapped: a build that truncates its installer must not take the service down.
        const QByteArray piece = file.read(std::min(left, pieceSize));
        if (piece.isEmpty())
            return std::nullopt;
        hash.addData(piece);
        left -= piece.size();
    }
    const QString md5 = QString::fromLatin1(hash.result().toHex());
    entries_.insert(path, {stamp, md5});
    return md5;
}
