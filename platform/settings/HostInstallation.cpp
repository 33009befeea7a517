#include "HostInstallation.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

namespace ZVPlatform {

namespace {

constexpr int longestAnswer = 2000; // milliseconds

// Whether a folder that the environment names holds the program. Programs that are started by one
// from an AppImage or a snap inherit its variables, and are none themselves.
bool isBelow(const char *variable, const QString &program)
{
    const QString folder = QDir::cleanPath(qEnvironmentVariable(variable));
    return program.startsWith(folder + u'/') && QDir::isAbsolutePath(folder);
}

// Whether a package manager, if there is one, knows the program as a file of a package.
bool isOwned(const QString &manager, const QStringList &arguments)
{
    const QString found = QStandardPaths::findExecutable(manager);
    if (found.isEmpty())
        return false;
    QProcess process;
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(found, arguments, QIODevice::ReadOnly);
    return process.waitForFinished(longestAnswer) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

// The query takes patterns.
QString literally(QString path)
{
    for (const QChar special : QStringLiteral("\\*?["))
        path.replace(special, QStringLiteral("\\") + special);
    return path;
}

bool isOfDebianPackage(const QString &program)
{
    const auto isKnown = [](const QString &path) {
        return isOwned(QStringLiteral("dpkg-query"),
                       {QStringLiteral("--search"), QStringLiteral("--"), literally(path)});
    };
    // Packages that are older than the merge of /bin and /usr/bin know the former.
    const QString merged = QStringLiteral("/usr");
    return isKnown(program) ||
           (program.startsWith(merged + u'/') && isKnown(program.sliced(merged.size())));
}

} // namespace

HostInstallation hostInstallation(const QString &given)
{
    const QString path = given.isEmpty() ? QCoreApplication::applicationFilePath() : given;
    const QString canonical = QFileInfo(path).canonicalFilePath();
    const QString program = canonical.isEmpty() ? path : canonical;
    if (QFileInfo::exists(QStringLiteral("/.flatpak-info")))
        return HostInstallation::Flatpak;
    if (isBelow("SNAP", program))
        return HostInstallation::Snap;
    if (qEnvironmentVariableIsSet("APPIMAGE") &&
        (isBelow("APPDIR", program) || program == qEnvironmentVariable("APPIMAGE")))
        return HostInstallation::AppImage;
    if (isOfDebianPackage(program))
        return HostInstallation::DebianPackage;
    if (isOwned(QStringLiteral("rpm"),
                {QStringLiteral("--query"), QStringLiteral("--file"), program}))
        return HostInstallation::RpmPackage;
    return HostInstallation::Unmanaged;
}

QString installationKeeper(HostInstallation installation)
{
    switch (installation) {
    case HostInstallation::Unmanaged:
        return QStringLiteral("was installed by no package manager and updates itself");
    case HostInstallation::AppImage:
        return QStringLiteral("is an AppImage and updates itself");
    case HostInstallation::Flatpak:
        return QStringLiteral("runs in a Flatpak sandbox, which its store updates");
    case HostInstallation::Snap:
        return QStringLiteral("is a snap, which its store updates");
    case HostInstallation::DebianPackage:
        return QStringLiteral("belongs to a Debian package, which the package manager updates");
    case HostInstallation::RpmPackage:
        break;
    }
    return QStringLiteral("belongs to an RPM package, which the package manager updates");
}

bool updatesItself(HostInstallation installation)
{
    return installation == HostInstallation::Unmanaged ||
           installation == HostInstallation::AppImage;
}

} // namespace ZVPlatform
