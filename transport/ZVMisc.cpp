#include "ZVMisc.h"

#include "../platform/files/FileDigest.h"

QString ZVMisc::getFileMD5(const QString &path)
{
    return QString::fromLatin1(ZVPlatform::md5OfFile(path).toHex());
}
