#pragma once

#include "Export.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace ZVPlatform {

/// The file operations that the system needs, on absolute or relative paths as the host gave them.
/// Nothing reports an error unless it says so: a file that cannot be read is a missing file. A path
/// that the operating system cannot express (one with a NUL inside) names nothing. Any thread.
class Files
{
public:
    /// Appends a path component, with a separator unless there is one; normalises nothing.
    static QString join(const QString &directory, const QString &name);

    /// The path with the last extension of its last component exchanged, or added when it has none.
    static QString replaceExtension(const QString &path, const QString &extension);

    /// Whether one plain file name within a directory can have this text: not empty, neither "."
    /// nor "..", no separator, no NUL, not too long for a file system.
    static bool isPlainName(const QString &name);

    /// Whether anything is there; a link counts as what it points to.
    ZVUPDATE_EXPORT static bool exists(const QString &path);

    /// Creates a directory with those above it.
    static void createDirectory(const QString &path);

    /// The size in bytes of a regular file; 0 when there is none.
    static quint64 size(const QString &path);

    /// The bytes that the user may still write to the file system of a path's directory; the
    /// largest number when that cannot be learnt.
    static quint64 room(const QString &path);

    /// Appends bytes to a regular file, which is created when missing. Opened and closed each time;
    /// never follows a link, so that nothing outside the directory is written. Waits while the file
    /// is under a FileGuard, for a minute at most. A failure loses the bytes.
    static void append(const QString &path, const QByteArray &bytes);

    /// Removes a file or a link; a directory stays.
    static void remove(const QString &path);

    /// Gives a file another name in one step: whenever the process ends, one of the two names holds
    /// the whole file. Fails when something has the new name already, and then changes nothing.
    /// Bytes are copied only where the file system cannot rename.
    static bool move(const QString &from, const QString &to);

    /// The text of a file, in UTF-8 unless a byte order mark says otherwise; absent when the file
    /// cannot be read or is not text in that encoding.
    static std::optional<QString> readText(const QString &path);

    /// The path with a leading "~" exchanged for the user's home directory.
    static QString expandTilde(const QString &path);
};

/// Keeps every append() of this or another process off a file for as long as it lives, so that a
/// file can be verified and moved without changing in between. Guards nothing when there is no such
/// file, or the file system has no locks.
class FileGuard
{
public:
    explicit FileGuard(const QString &path);
    ~FileGuard();

    FileGuard(const FileGuard &) = delete;
    FileGuard &operator=(const FileGuard &) = delete;

private:
    int descriptor_ = -1;
};

} // namespace ZVPlatform
