// Has both digests of a file computed in one pass, as hosts that demand signatures do.
#include "platform/files/FileDigest.h"

#include <QFile>

#include <cstdio>

int main(int argc, char **argv)
{
    QFile file(argc == 2 ? QString::fromLocal8Bit(argv[1]) : QString());
    if (!file.open(QIODevice::ReadOnly))
        return 1;
    const auto digests =
        ZVPlatform::digestsOfOpenFile(file.handle(), ZVPlatform::WithSha256::Yes, {});
    if (!digests)
        return 1;
    std::printf("%s %s\n", digests->md5.toHex().constData(), digests->sha256.toHex().constData());
    return 0;
}
