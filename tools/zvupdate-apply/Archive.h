#pragma once

#include "../../platform/Result.h"

#include <QString>

/// A zip or tar archive from anybody, which is not trusted: unpacked, it writes nowhere but into
/// the folder given, and nothing but folders, files and links that stay in it.
class Archive
{
public:
    /// The archive that a file holds that is open for reading; it stays the caller's. If a top
    /// folder is to be stripped, all must lie in one.
    Archive(int descriptor, bool stripsTopFolder)
        : descriptor_(descriptor), stripsTopFolder_(stripsTopFolder)
    {
    }

    /// Looks at all that is in it and writes nothing. Fails, with half a sentence for people, for
    /// what unpack() would refuse, and for what would not fit into so many bytes.
    ZVPlatform::Result<void> survey(quint64 room) const;

    /// Unpacks it into a folder that is there, has an absolute path without links, and is empty.
    /// When that fails, what has been written by then is left to the caller. An entry gets no more
    /// bytes than are announced for it.
    ZVPlatform::Result<void> unpack(const QString &folder) const;

private:
    int descriptor_;
    bool stripsTopFolder_;
};
