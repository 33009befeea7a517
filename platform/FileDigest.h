#pragma once

#include <QByteArray>
#include <QString>

namespace ZVPlatform {

/// The MD5 digest (16 bytes) of a file, taken in one call over the whole mapped file. A file that
/// is missing or cannot be read counts as empty. Of a file of 4 GiB or more only the first (size
/// modulo 2^32) bytes count: the service computes its digests with a 32-bit length, too. Reads the
/// whole file on the calling thread.
QByteArray md5OfFile(const QString &path);

} // namespace ZVPlatform
