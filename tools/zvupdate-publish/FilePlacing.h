#pragma once

#include "../../platform/Result.h"
#include "../catalogue/InstallerDigests.h"

#include <QByteArray>
#include <QString>

/// Puts a file's contents at another path.
namespace FilePlacing {

/// What a file is named with until it is whole. A run that is killed leaves it.
inline const QString unfinishedSuffix = QStringLiteral(".new");

/// Whether the new file may be the old one under a second name, so that who writes into the one
/// changes the other.
enum class Sharing { None, HardLink };

/// Makes target a file with source's contents: sharing the disk's blocks where the file system can,
/// else as sharing allows, else as a copy, in which holes stay holes. Fails when what has come of
/// it has not that SHA-256 digest, since source was written into. Target appears at once and
/// whole, or stays as it was.
///
/// done is told of source's bytes twice: as they are placed, and as they are read again.
ZVPlatform::Result<void> place(const QString &source, const QString &target, Sharing sharing,
                               const QString &sha256, const PieceDone &done);

/// Makes a file of these bytes, at once and whole, or leaves what was there. Fails with one line.
ZVPlatform::Result<void> write(const QString &path, const QByteArray &bytes);

} // namespace FilePlacing
