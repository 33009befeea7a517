#pragma once

#include "../platform/Export.h"

#include <QString>

/// File digests, as the update service announces them. Stateless; any thread.
class ZVUPDATE_EXPORT ZVMisc
{
public:
    /// The MD5 digest of a file as 32 lower-case hexadecimal digits. Reads the whole file on the
    /// calling thread. Never fails: a file that is missing or unreadable has the digest of no
    /// bytes, and of a file of 4 GiB or more only the first (size modulo 2^32) bytes count.
    static QString getFileMD5(const QString &path);
};
