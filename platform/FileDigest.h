#pragma once

#include <QByteArray>
#include <QString>

namespace ZVPlatform {

/// The MD5 digest (16 bytes) of a file, read piece by piece on the calling thread. A file that is
/// missing counts as empty, and one that cannot be read as ending there. Of a file of 4 GiB or more
/// only the first (size modulo 2^32) bytes count: the service computes its digests with a 32-bit
/// length, too.
QByteArray md5OfFile(const QString &path);

} // namespace ZVPlatform
