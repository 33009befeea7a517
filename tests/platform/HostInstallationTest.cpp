#include "../../platform/settings/HostInstallation.h"
#include "../support/Testing.h"

using namespace ZVPlatform;

namespace {

// Package managers that know one file each, by the words that the real ones are asked with.
TEST(HostInstallation, IsFoundByTheEnvironmentAndThePackageManagers)
{
    const QTemporaryDir folder;
    const auto script = [&](const QString &name, const QByteArray &text) {
        writeFile(folder.filePath(name), "#!/bin/sh\n" + text);
        QFile::setPermissions(folder.filePath(name), QFile::ReadOwner | QFile::ExeOwner);
    };
    script(QStringLiteral("dpkg-query"), R"([ "$1 $2" = "--search --" ] && case $3 in
/usr/bin/new|/bin/old|'/opt/odd\[1]') echo "package: $3";;
*) exit 1;;
esac)");
    script(QStringLiteral("rpm"), R"([ "$*" = "--query --file /usr/bin/red" ])");

    const struct
    {
        const char *program;
        const char *variable;
        const char *value;
        HostInstallation installation;
    } cases[] = {
        {"/usr/bin/new", "", "", HostInstallation::DebianPackage},
        {"/usr/bin/old", "", "", HostInstallation::DebianPackage}, // In a package as /bin/old.
        {"/opt/odd[1]", "", "", HostInstallation::DebianPackage},
        {"/usr/bin/red", "", "", HostInstallation::RpmPackage},
        {"/opt/own", "", "", HostInstallation::Unmanaged},
        {"/snap/app/1/bin/app", "SNAP", "/snap/app/1", HostInstallation::Snap},
        {"/snap/app/12/bin/app", "SNAP", "/snap/app/1", HostInstallation::Unmanaged},
        {"/tmp/.mount/usr/bin/app", "APPDIR", "/tmp/.mount", HostInstallation::AppImage},
        // Started by an AppImage, and none itself.
        {"/usr/bin/new", "APPDIR", "/tmp/.mount", HostInstallation::DebianPackage},
    };
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", folder.path().toLocal8Bit());
    qputenv("APPIMAGE", "/home/user/App.AppImage");
    for (const auto &[program, variable, value, expected] : cases) {
        if (*variable)
            qputenv(variable, value);
        const auto found = hostInstallation(QString::fromLatin1(program));
        EXPECT_EQ(found, expected) << program << ' ' << value;
        EXPECT_EQ(updatesItself(found), expected == HostInstallation::Unmanaged ||
                                            expected == HostInstallation::AppImage);
        if (*variable)
            qunsetenv(variable);
    }
    qunsetenv("APPIMAGE");
    qputenv("PATH", path);
}

} // namespace
