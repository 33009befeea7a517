#pragma once

#include "../Export.h"

#include <QString>

namespace ZVPlatform {

/// The path under which an installer is to be opened, so that the desktop knows its kind: beside
/// it, with the suffix of what it is by its content, a hard link, or a copy where the file system
/// has no links. What can be started by itself is made executable for its owner. The path itself
/// when the kind is not known or has that suffix, and when nothing can be written there. Links to
/// other installers of the same product go, as far as those are still there. Blocks for as long as
/// a copy takes.
ZVUPDATE_EXPORT QString installerLink(const QString &path);

/// Removes an installer and the links to it.
ZVUPDATE_EXPORT void removeInstaller(const QString &path);

} // namespace ZVPlatform
