#pragma once

#include "../Export.h"

#include <QByteArray>
#include <QString>

#include <functional>
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

    /// Whether the operating system can be told of such a path: neither empty nor with a NUL
    /// inside.
    static bool isExpressible(const QString &path);

    /// Whether anything is there; a link counts as what it points to.
    ZVUPDATE_EXPORT static bool exists(const QString &path);

    /// Whether a directory is there; a link counts as what it points to.
    static bool isDirectory(const QString &path);

    /// Creates a directory with those above it.
    static void createDirectory(const QString &path);

    /// The size in bytes of a regular file; 0 when there is none.
    static quint64 size(const QString &path);

    /// Whether the directory of a path is there and may be written to.
    static bool isInWritableDirectory(const QString &path);

    /// The bytes that the user may still write to the file system of a path's directory; the
    /// largest number when that cannot be learnt.
    static quint64 room(const QString &path);

    /// Removes a file or a link; a directory stays, and so does a file that another process has
    /// locked for more than a second, or until stopped() holds: it is that one's to deal with.
    static void remove(const QString &path, const std::function<bool()> &stopped = {});

    /// The text of a file, in UTF-8 unless a byte order mark says otherwise; absent when the file
    /// cannot be read, has more than 1 MiB or is not text in that encoding.
    static std::optional<QString> readText(const QString &path);

    /// The path with a leading "~" exchanged for the user's home directory.
    static QString expandTilde(const QString &path);
};

} // namespace ZVPlatform
