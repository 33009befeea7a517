#include "Target.h"

#include "../../platform/files/Files.h"
#include "../../platform/settings/HostInstallation.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr mode_t permissions = S_IRWXU | S_IRWXG | S_IRWXO;

bool isBelow(const QString &path, const QString &folder)
{
    return path.startsWith(folder + u'/');
}

} // namespace

Result<Target> Target::find(const QString &path)
{
    Target target{.given = path, .path = path};
    // Where names cannot be exchanged, an end between two renames leaves the old one here.
    if (!QFileInfo::exists(path)) {
        if (QFileInfo(path).isSymLink())
            target.path = QFileInfo(path).symLinkTarget();
        std::rename(QFile::encodeName(target.previous()).constData(),
                    QFile::encodeName(target.path).constData());
    }
    target.path = QFileInfo(path).canonicalFilePath();
    if (target.path.isEmpty())
        return Failure{u"there is nothing at \"%1\" to replace"_s.arg(path)};
    if (const auto ours = target.isOurs(); !ours)
        return Failure{u"\"%1\" cannot be replaced: %2"_s.arg(path, ours.error())};
    struct stat status = {};
    stat(QFile::encodeName(target.path).constData(), &status);
    target.isFolder = S_ISDIR(status.st_mode);
    target.mode = status.st_mode & permissions;
    return target;
}

Result<void> Target::isOurs() const
{
    const QString parent = QFileInfo(path).path();
    struct stat own = {};
    struct stat above = {};
    struct statvfs mount = {};
    if (stat(QFile::encodeName(path).constData(), &own) != 0 ||
        stat(QFile::encodeName(parent).constData(), &above) != 0 ||
        statvfs(QFile::encodeName(parent).constData(), &mount) != 0)
        return Failure{qt_error_string()};
    if (!S_ISREG(own.st_mode) && !S_ISDIR(own.st_mode))
        return Failure{u"it is neither a file nor a folder"_s};
    const QString home = QFileInfo(QDir::homePath()).canonicalFilePath();
    if (path == u"/"_s || path == home || isBelow(home, path))
        return Failure{u"it is no program's own folder"_s};
    if (const HostInstallation installation = hostInstallation(path); !updatesItself(installation))
        return Failure{u"it "_s + installationKeeper(installation)};
    if ((mount.f_flag & ST_RDONLY) != 0)
        return Failure{u"it lies where nothing can be written"_s};
    if (own.st_dev != above.st_dev)
        return Failure{u"it is where another file system begins"_s};
    if (own.st_uid != geteuid())
        return Failure{u"it belongs to another user, who has to do this"_s};
    if (!Files::isInWritableDirectory(path))
        return Failure{u"the folder that it lies in cannot be written"_s};
    return {};
}

QString Target::workFolder() const
{
    const QFileInfo info(path);
    return Files::join(info.path(), u"."_s + info.fileName() + u".zvupdate-apply"_s);
}

bool Target::isNamedAppImage() const
{
    return QFileInfo(qEnvironmentVariable("APPIMAGE")).canonicalFilePath() == path;
}

bool Target::holds(const QString &canonicalPath) const
{
    if (isFolder)
        return isBelow(canonicalPath, path);
    const QString mount = QFileInfo(qEnvironmentVariable("APPDIR")).canonicalFilePath();
    return canonicalPath == path ||
           (isNamedAppImage() && !mount.isEmpty() && isBelow(canonicalPath, mount));
}
