#pragma once

#include "../../platform/Result.h"
#include "../../platform/files/FileDescriptor.h"

#include <QByteArray>
#include <QString>

/// Opens files for reading that somebody else may exchange at any time. Nothing but a regular file
/// is opened: a pipe would hold up its opener until somebody writes, and a device is no file of
/// ours.
namespace RegularFile {

/// What a file holds. Links count as what they point to. Fails with the system's reason.
ZVPlatform::Result<QByteArray> read(const QString &path);

/// Opens a file by an absolute path without any link in it: one that has come to be there since
/// leads to a file that nobody meant. Not open when there is no regular file that can be read.
FileDescriptor openWithoutLinks(const QString &path);

} // namespace RegularFile
