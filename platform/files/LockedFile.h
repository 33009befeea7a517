#pragma once

#include "FileDescriptor.h"

#include <QByteArray>
#include <QString>

#include <functional>

namespace ZVPlatform {

/// A regular file that is open under its name, and locked against every other LockedFile of this
/// and other processes for as long as it lives, so that it does not change while it is verified,
/// moved, removed or appended to.
///
/// The lock is one that only those can take who may write to the file. Locks of others who merely
/// read it, such as backups, are not heeded, and while there is one, two writers do not exclude
/// each other; nor is there a lock on file systems without locks. A file that may only be read is
/// open, and not locked: what others may do with it is theirs to know.
class LockedFile
{
public:
    enum class State {
        /// It is open, and locked where it can be.
        Open,
        /// Another has it locked and did not let go of it within a second, or before stopped()
        /// held.
        InUse,
        /// There is no such file, or it is no regular one, or it may not be opened: see error().
        NotOpen,
    };

    enum class Moved {
        Yes,
        /// Something has the new name already, or the file cannot be renamed. Nothing has changed.
        No,
        /// The name has come to be another file's. Nothing has changed.
        NotThisFile,
    };

    /// Opens and locks a file; never follows a link, and never waits for a pipe.
    explicit LockedFile(const QString &path, const std::function<bool()> &stopped = {});

    State state() const { return state_; }
    /// Why it could not be opened, by the system's numbers.
    int error() const { return error_; }
    /// Open for reading and, if it may be written, for writing.
    int descriptor() const { return descriptor_.get(); }

    /// Makes the file, readable for its user alone, when opening it has found nothing; locks it.
    /// NotOpen with EEXIST when somebody else was faster.
    void create();

    /// Gives the file another name in one step: whenever the process ends, one of the two names
    /// holds the whole file. Replaces nothing but a link that leads nowhere. Bytes are copied only
    /// where the file system cannot rename.
    Moved moveTo(const QString &path);

    /// Removes the file, if the name still is its own, or what has the name and is NotOpen, but no
    /// directory.
    void remove();

    /// Lets go of the file, and with it of the lock.
    void close() { descriptor_ = {}; }

private:
    void open(int flags, const std::function<bool()> &stopped);

    const QByteArray path_;
    State state_ = State::NotOpen;
    int error_ = 0;
    FileDescriptor descriptor_;
};

} // namespace ZVPlatform
