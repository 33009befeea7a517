#include "UpdateFiles.h"

#include "../platform/files/Files.h"

using ZVPlatform::Files;

std::optional<UpdateFiles> UpdateFiles::named(const QString &directory, const QString &productID,
                                              const QString &version)
{
    const QString baseName = productID + QLatin1Char('_') + version;
    const QString diskImageName = baseName + QLatin1String(".dmg");
    if (!Files::isPlainName(diskImageName))
        return std::nullopt;

    UpdateFiles files;
    files.serviceFileName = baseName + QLatin1String(".exe");
    files.diskImagePath = Files::join(directory, diskImageName);
    files.temporaryPath = Files::replaceExtension(files.diskImagePath, QStringLiteral("bin"));
    return files;
}

QString UpdateFiles::diskImagePathFor(const QString &temporaryPath)
{
    return Files::replaceExtension(temporaryPath, QStringLiteral("dmg"));
}
