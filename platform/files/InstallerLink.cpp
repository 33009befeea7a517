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

QString nameFor(const QString &path, InstallerKind kind)
{
    const QString suffix = installerSuffix(kind);
    return suffix.isEmpty() ? path : Files::replaceExtension(path, suffix.mid(1));
}

bool isSameFile(const QString &one, const QString &other)
{
    std::error_code error;
    return fs::equivalent(nativePath(one), nativePath(other), error);
}

// A file that is no link to its installer is somebody else's, and stays.
void removeLinksTo(const QString &path)
{
    for (int kind = 0; kind < static_cast<int>(InstallerKind::Unknown); ++kind) {
        const QString link = nameFor(path, static_cast<InstallerKind>(kind));
        if (link != path && isSameFile(link, path))
            QFile::remove(link);
    }
}

void removeLinksOfOthers(const QFileInfo &installer)
{
    const auto productOf = [](const QFileInfo &file) {
        return file.completeBaseName().section(QLatin1Char('_'), 0, -2);
    };
    const auto images =
        installer.dir().entryInfoList({QLatin1String("*.") + installer.suffix()}, QDir::Files);
    for (const QFileInfo &image : images) {
        if (image == installer || productOf(image) != productOf(installer))
            continue;
        removeLinksTo(image.filePath());
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
        file.setPermissions(file.permissions() | QFile::ExeOwner);
    removeLinksOfOthers(QFileInfo(path));

    const QString link = nameFor(path, kind);
    if (isSameFile(link, path))
        return link;
    std::error_code error;
    fs::remove(nativePath(link), error); // Of an earlier file, or a copy.
    fs::create_hard_link(nativePath(path), nativePath(link), error);
    if (!error || fs::copy_file(nativePath(path), nativePath(link), error))
        return link;
    QFile::remove(link); // It may be cut off.
    return path;
}

void removeInstaller(const QString &path)
{
    removeLinksTo(path);
    QFile::remove(path);
}

} // namespace ZVPlatform
