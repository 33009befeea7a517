#include "InstallerKind.h"

#include <QMimeDatabase>

namespace ZVPlatform {

namespace {

constexpr qint64 headSize = 16 << 10; // bytes; as many as the database looks at
constexpr qint64 diskImageTrailer = 512;

struct Traits
{
    InstallerKind kind;
    const char *mimeType; // Or an alias of it; empty where the content alone tells.
    const char *suffix;
    const char *opener;
};

// In the order of the kinds.
const Traits allTraits[] = {
    {InstallerKind::DebianPackage, "application/vnd.debian.binary-package", ".deb",
     "a Debian package, which \"sudo apt install FILE\" installs"},
    {InstallerKind::RpmPackage, "application/x-rpm", ".rpm",
     "an RPM package, which \"sudo dnf install FILE\" or \"sudo zypper install FILE\" "
     "installs"},
    {InstallerKind::AppImage, "application/vnd.appimage", ".AppImage",
     "an AppImage, which is made executable and started as it is"},
    {InstallerKind::FlatpakBundle, "application/vnd.flatpak", ".flatpak",
     "a Flatpak bundle, which \"flatpak install FILE\" installs"},
    {InstallerKind::Script, "application/x-shellscript", ".run",
     "a script, which is made executable and started as it is"},
    {InstallerKind::Zip, "application/zip", ".zip", "a zip archive, which unzip unpacks"},
    {InstallerKind::Tar, "application/x-tar", ".tar", "a tar archive, which tar unpacks"},
    {InstallerKind::TarGzip, "application/gzip", ".tar.gz",
     "compressed by gzip; if it is a tar archive, tar unpacks it"},
    {InstallerKind::TarBzip2, "application/x-bzip2", ".tar.bz2",
     "compressed by bzip2; if it is a tar archive, tar unpacks it"},
    {InstallerKind::TarXz, "application/x-xz", ".tar.xz",
     "compressed by xz; if it is a tar archive, tar unpacks it"},
    {InstallerKind::TarZstd, "application/zstd", ".tar.zst",
     "compressed by zstd; if it is a tar archive, tar unpacks it"},
    {InstallerKind::DiskImage, "", ".dmg", "a disk image, which macOS opens"},
    {InstallerKind::Executable, "", "", "a program, which is made executable and started as it is"},
    {InstallerKind::Unknown, "", "", "of no kind that is known here; its maker says what opens it"},
};

// What the database may lack, or knows as something more general.
const struct
{
    qsizetype offset;
    QByteArray bytes;
    InstallerKind kind;
} marks[] = {
    {8, QByteArrayLiteral("AI\1"), InstallerKind::AppImage},
    {8, QByteArrayLiteral("AI\2"), InstallerKind::AppImage},
    {0, QByteArrayLiteral("\177ELF"), InstallerKind::Executable},
    {0, QByteArrayLiteral("BZh"), InstallerKind::TarBzip2},
    {0, QByteArrayLiteral("#!"), InstallerKind::Script},
    {0, QByteArrayLiteral("flatpak\0"), InstallerKind::FlatpakBundle},
};

const Traits &traits(InstallerKind kind)
{
    return allTraits[static_cast<size_t>(kind)];
}

} // namespace

InstallerKind installerKind(QIODevice &content)
{
    content.seek(0);
    const QByteArray head = content.read(headSize);
    const QMimeDatabase database;
    const QMimeType type = database.mimeTypeForData(head);
    for (const Traits &each : allTraits) {
        if (*each.mimeType && type == database.mimeTypeForName(QLatin1String(each.mimeType)))
            return each.kind;
    }
    for (const auto &[offset, bytes, kind] : marks) {
        if (head.mid(offset, bytes.size()) == bytes)
            return kind;
    }
    content.seek(qMax<qint64>(0, content.size() - diskImageTrailer));
    return content.read(4) == "koly" ? InstallerKind::DiskImage : InstallerKind::Unknown;
}

QString installerSuffix(InstallerKind kind)
{
    return QLatin1String(traits(kind).suffix);
}

QString installerOpener(InstallerKind kind)
{
    return QLatin1String(traits(kind).opener);
}

} // namespace ZVPlatform
