#pragma once

#include "../Export.h"

#include <QString>

namespace ZVPlatform {

/// How a program came onto this machine, for hosts that leave updates to whoever installed them.
enum class HostInstallation {
    /// By nobody who would update it: it may update itself.
    Unmanaged,
    /// An AppImage, one file that the user keeps: it may update itself.
    AppImage,
    /// In a Flatpak sandbox, whose store updates it.
    Flatpak,
    /// As a snap, which its store updates.
    Snap,
    /// By a Debian package, which the system's package manager updates.
    DebianPackage,
    /// By an RPM package, which the system's package manager updates.
    RpmPackage,
};

/// How the program with an absolute path was installed; without one, that which is running, whose
/// application object must exist. Asks the package managers, where there are any, for two seconds
/// each at the most. Any thread.
ZVUPDATE_EXPORT HostInstallation hostInstallation(const QString &program = {});

/// What such a program is, and who updates it: what people are told after "It".
ZVUPDATE_EXPORT QString installationKeeper(HostInstallation installation);

/// Whether an installation is one that updates itself, as no store and no package manager does.
ZVUPDATE_EXPORT bool updatesItself(HostInstallation installation);

} // namespace ZVPlatform
