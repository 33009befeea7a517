#include "FileDigests.h"

#include <QCryptographicHash>
#include <QFile>

std::optional<QString> FileDigests::md5(const QString &path)
{
    // Taken before the reading: a file that changes meanwhile is read again the next time.
    const auto stamp = FileStamp::of(path);
    if (const auto known = entries_.constFind(path);
        known != entries_.constEnd() && stamp && known->stamp == stamp)
        return known->md5;

    // Read, not mapped: a build that truncates its installer must not take the service down.
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Md5);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return std::nullopt;
    const QString md5 = QString::fromLatin1(hash.result().toHex());
    entries_.insert(path, {stamp, md5});
    return md5;
}
