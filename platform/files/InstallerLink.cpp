#include "InstallerLink.h"

#include "Files.h"
#include "InstallerKind.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <filesystem>
#include <system_error>

namespace ZVPlatform {

namespace {

namespace fs = std::filesystem;

fs::path nativePath(const QString &path)
{
    return {QFile::encodeName(path).toStdString()};
}

bool isSameFile(const QString &one, const QString &other)
{
    std::error_code error;
    return fs::equivalent(nativePath(one), nativePath(other), error);
}

// A file that is no link to its installer is somebody else's, and stays.
void removeOtherLinks(const QString &path, const QString &suffix)
{
    const QFileInfo installer(path);
    const QString product = installer.completeBaseName().section(QLatin1Char('_'), 0, -2);
    const auto files = installer.dir().entryInfoList(QDir::Files);
    for (const QFileInfo &file : files) {
        const QString name = file.filePath();
        if (!file.fileName().startsWith(product + QLatin1Char('_')) || !name.endsWith(suffix))
            continue;
        const QString origin = name.chopped(suffix.size()) + QLatin1Char('.') + installer.suffix();
        if (origin != path && isSameFile(name, origin))
            QFile::remove(name);
    }
}

bool isStarted(InstallerKind kind)
{
    return kind == InstallerKind::AppImage || kind == InstallerKind::Script ||
           kind == InstallerKind::Executable;
}

} // namespace

QString installerLink(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return path;
    const InstallerKind kind = installerKind(file);
    if (isStarted(kind))
        file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser);
    const QString suffix = installerSuffix(kind);
    if (suffix.isEmpty() || path.endsWith(suffix))
        return path;
    removeOtherLinks(path, suffix);

    const QString link = Files::replaceExtension(path, suffix.mid(1));
    if (isSameFile(link, path))
        return link;
    std::error_code error;
    fs::remove(nativePath(link), error); // Of an earlier file, or a copy.
    fs::create_hard_link(nativePath(path), nativePath(link), error);
    if (error)
        fs::copy_file(nativePath(path), nativePath(link), error);
    return error ? path : link;
}

} // namespace ZVPlatform
