#pragma once

#include "../../platform/files/FileDescriptor.h"

#include <QString>

/// Opens files for reading that somebody else may exchange at any time. Nothing but a regular file
/// is opened: a pipe would hold up its opener until somebody writes, and a device is no file of
/// ours.
namespace RegularFile {

/// Links count as what they point to. Not open when that is no regular file that can be read; errno
/// then says why, as far as the system knows.
FileDescriptor open(const QString &path);

/// The same for an absolute path without any link in it: one that has come to be there since leads
/// to a file that nobody meant.
FileDescriptor openWithoutLinks(const QString &path);

} // namespace RegularFile
