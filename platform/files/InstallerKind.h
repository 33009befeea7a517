#pragma once

#include "../Export.h"

#include <QIODevice>
#include <QString>

namespace ZVPlatform {

/// What an installer is, by its content and never by its name.
enum class InstallerKind {
    DebianPackage,
    RpmPackage,
    AppImage,
    FlatpakBundle,
    Script, ///< Begins with "#!", as self-extracting .run files do.
    Zip,
    Tar,
    TarGzip, ///< This and the next three: compressed, with what is most likely a tar archive
             ///< inside.
    TarBzip2,
    TarXz,
    TarZstd,
    DiskImage,  ///< Of macOS.
    Executable, ///< An ELF program that is no AppImage.
    Unknown,
};

/// Finds the kind of what a device holds that can be sought in; leaves it anywhere.
ZVUPDATE_EXPORT InstallerKind installerKind(QIODevice &content);

/// What a file of that kind is called after its name, with the dot; empty for those without.
ZVUPDATE_EXPORT QString installerSuffix(InstallerKind kind);

/// What a file of that kind is, and what opens it: what people are told after "It is".
ZVUPDATE_EXPORT QString installerOpener(InstallerKind kind);

} // namespace ZVPlatform
