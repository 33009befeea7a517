#include "../../platform/files/InstallerKind.h"
#include "Archives.h"

#include <QBuffer>

#include <gtest/gtest.h>

using namespace ZVPlatform;

namespace {

TEST(InstallerKind, IsFoundByTheContent)
{
    const QByteArray elf("\177ELF\2\1\1\0\0\0\0\0\0\0\0\0\3\0\76\0\1\0\0\0", 24);
    const QList<Item> items{{"name", Item::File, "content"}};
    const struct
    {
        QByteArray content;
        InstallerKind kind;
        const char *suffix;
    } cases[] = {
        {"!<arch>\ndebian-binary   1410122664  0     0     100644  4         `\n2.0\n",
         InstallerKind::DebianPackage, ".deb"},
        {QByteArray("\355\253\356\333\3\0\0\0", 8) + QByteArray(100, '\0'),
         InstallerKind::RpmPackage, ".rpm"},
        {QByteArray(elf).replace(8, 3, "AI\2"), InstallerKind::AppImage, ".AppImage"},
        {QByteArray(elf).replace(8, 3, "AI\1"), InstallerKind::AppImage, ".AppImage"},
        {QByteArray("flatpak\0", 8) + "more", InstallerKind::FlatpakBundle, ".flatpak"},
        {"#!/bin/sh\necho\n", InstallerKind::Script, ".run"},
        {archiveOf(items, "zip"), InstallerKind::Zip, ".zip"},
        {archiveOf(items), InstallerKind::Tar, ".tar"},
        {archiveOf(items, "tar.gz"), InstallerKind::TarGzip, ".tar.gz"},
        {archiveOf(items, "tar.xz"), InstallerKind::TarXz, ".tar.xz"},
        {archiveOf(items, "tar.zst"), InstallerKind::TarZstd, ".tar.zst"},
        {"BZh91AY&SY", InstallerKind::TarBzip2, ".tar.bz2"},
        {QByteArray(5000, '\1') + "koly" + QByteArray(508, '\0'), InstallerKind::DiskImage, ".dmg"},
        {elf, InstallerKind::Executable, ""},
        {"plain text", InstallerKind::Unknown, ""},
        {"", InstallerKind::Unknown, ""},
    };
    for (auto each : cases) {
        QBuffer buffer(&each.content);
        buffer.open(QIODevice::ReadOnly);
        EXPECT_EQ(installerKind(buffer), each.kind) << each.content.left(20).constData();
        EXPECT_EQ(installerSuffix(each.kind), QLatin1String(each.suffix));
    }
}

} // namespace
