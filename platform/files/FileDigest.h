#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

namespace ZVPlatform {

/// The MD5 digest (16 bytes) of a file. One that is missing or cannot be read to its end counts as
/// empty. Of a file of 4 GiB or more only the first (size modulo 2^32) bytes count: the service
/// computes its digests with a 32-bit length, too. Reads the whole file on the calling thread,
/// unless stopped() holds meanwhile; the digest is of no use then.
QByteArray md5OfFile(const QString &path, const std::function<bool()> &stopped = {});

/// What a file is known by.
struct FileDigests
{
    QByteArray md5;    ///< As md5OfFile() says; empty when the file cannot be read to its end.
    QByteArray sha256; ///< Of the whole file; empty also when it is not asked for.
    quint64 size = 0;  ///< In bytes.
};

enum class WithSha256 { No, Yes };

/// Both of a regular file that is open for reading, in one pass. Asks stopped() again and again;
/// absent once that holds, or when there is no memory to read with.
std::optional<FileDigests> digestsOfOpenFile(int descriptor, WithSha256 withSha256,
                                             const std::function<bool()> &stopped);

/// The same of a regular file that is open for reading, wherever its names lead by now, but empty
/// when it cannot be read to its end. Asks stopped() again and again; absent once that holds, or
/// when there is no memory to read with.
std::optional<QByteArray> md5OfOpenFile(int descriptor, const std::function<bool()> &stopped);

} // namespace ZVPlatform
