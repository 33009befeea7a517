#include "LockedFile.h"

#include "Files.h"

#include <QFile>
#include <QSaveFile>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZVPlatform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds longestLockWait(1);
constexpr std::chrono::milliseconds lockPollInterval(5);

// Whether no other writer has the file locked; where locks work, the file then is ours.
bool tryLock(int descriptor)
{
#ifdef F_OFD_SETLK
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    if (fcntl(descriptor, F_OFD_SETLK, &whole) == 0 || (errno != EAGAIN && errno != EACCES))
        return true;
    // Writers lock for writing; whoever has it locked for reading may be anybody.
    return fcntl(descriptor, F_OFD_GETLK, &whole) == 0 && whole.l_type == F_RDLCK;
#else
    return flock(descriptor, LOCK_EX | LOCK_NB) == 0 || (errno != EWOULDBLOCK && errno != EINTR);
#endif
}

// Waits for the lock, though not for long: whoever holds it may verify a large file, or be halted.
bool lock(int descriptor, const std::function<bool()> &stopped)
{
    const auto deadline = Clock::now() + longestLockWait;
    while (!tryLock(descriptor)) {
        if (Clock::now() >= deadline || (stopped && stopped()))
            return false;
        std::this_thread::sleep_for(lockPollInterval);
    }
    return true;
}

// Whether the path names the file that the descriptor has open.
bool isNameOf(const QByteArray &path, int descriptor)
{
    struct stat opened = {};
    struct stat named = {};
    return fstat(descriptor, &opened) == 0 && lstat(path.constData(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool leadsNowhere(const QByteArray &path)
{
    struct stat status = {};
    return lstat(path.constData(), &status) == 0 && S_ISLNK(status.st_mode) &&
           stat(path.constData(), &status) != 0 && errno == ENOENT;
}

enum class Renamed { Yes, Refused, NotPossible };

Renamed renameWithoutReplacing(const QByteArray &from, const QByteArray &to)
{
#ifdef __APPLE__
    const int result = renamex_np(from.constData(), to.constData(), RENAME_EXCL);
#else
    const int result =
        renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE);
#endif
    if (result == 0)
        return Renamed::Yes;
    const bool isAnotherWayOpen =
        errno == EINVAL || errno == ENOSYS || errno == ENOTSUP || errno == EXDEV;
    return isAnotherWayOpen ? Renamed::NotPossible : Renamed::Refused;
}

// For names that are not on one file system, as can happen where several are shown as one folder:
// the copy grows under a temporary name and gets the final one when it is complete.
bool copy(int descriptor, const QString &to)
{
    QFile source;
    QSaveFile target(to);
    if (!source.open(descriptor, QIODevice::ReadOnly) || !source.seek(0) ||
        !target.open(QIODevice::WriteOnly))
        return false;
    while (!source.atEnd()) {
        const QByteArray piece = source.read(1 << 20);
        if (piece.isEmpty() || target.write(piece) != piece.size())
            return false;
    }
    // What is still in memory goes first: the commitment does not see that fail.
    return target.flush() && target.commit();
}

bool renameOrCopy(const QByteArray &from, const QString &to, int descriptor)
{
    const QByteArray target = QFile::encodeName(to);
    const Renamed renamed = renameWithoutReplacing(from, target);
    if (renamed != Renamed::NotPossible)
        return renamed == Renamed::Yes;
    struct stat status = {};
    if (lstat(target.constData(), &status) == 0)
        return false;
    if (std::rename(from.constData(), target.constData()) == 0)
        return true;
    return errno == EXDEV && copy(descriptor, to) && unlink(from.constData()) == 0;
}

} // namespace

LockedFile::LockedFile(const QString &path, const std::function<bool()> &stopped)
    : path_(Files::isExpressible(path) ? QFile::encodeName(path) : QByteArray())
{
    // While waiting for the lock the file may have been moved or removed by whoever held it; then
    // the name is somebody else's now, and is looked up again.
    constexpr int mostMoves =
        100; // Where a name is never found again, files have no lasting number.
    for (int moves = 0; moves < mostMoves; ++moves) {
        open(O_RDWR, stopped);
        if (error_ == EACCES || error_ == EROFS || error_ == EPERM)
            open(O_RDONLY, stopped);
        if (state_ != State::Open || isNameOf(path_, descriptor()))
            return;
        close();
    }
    state_ = State::InUse;
}

void LockedFile::create()
{
    open(O_RDWR | O_CREAT | O_EXCL, {});
}

LockedFile::Moved LockedFile::moveTo(const QString &path)
{
    if (!isNameOf(path_, descriptor()))
        return Moved::NotThisFile;
    if (!Files::isExpressible(path))
        return Moved::No;
    const QByteArray target = QFile::encodeName(path);
    if (leadsNowhere(target))
        unlink(target.constData());
    return renameOrCopy(path_, path, descriptor()) ? Moved::Yes : Moved::No;
}

void LockedFile::remove()
{
    const bool isFree = state_ == State::NotOpen && !path_.isEmpty();
    if (isFree || isNameOf(path_, descriptor()))
        unlink(path_.constData());
}

void LockedFile::open(int flags, const std::function<bool()> &stopped)
{
    state_ = State::NotOpen;
    error_ = 0;
    // O_NONBLOCK keeps a pipe of that name from blocking; it means nothing to a regular file.
    descriptor_ = FileDescriptor(
        ::open(path_.constData(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR));
    struct stat status = {};
    if (!descriptor_.isOpen())
        error_ = errno;
    else if (fstat(descriptor(), &status) != 0 || !S_ISREG(status.st_mode))
        error_ = EINVAL;
    else if ((flags & O_ACCMODE) != O_RDONLY && !lock(descriptor(), stopped))
        state_ = State::InUse;
    else
        state_ = State::Open;
    if (state_ != State::Open)
        close();
}

} // namespace ZVPlatform
