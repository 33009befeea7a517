#include "Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringDecoder>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <limits>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ZVPlatform {

namespace {

constexpr std::chrono::seconds longestLockWait(60);
constexpr std::chrono::milliseconds lockPollInterval(10);
constexpr int longestName = 255; // bytes; the limit of every common file system

bool isExpressible(const QString &path)
{
    return !path.isEmpty() && !path.contains(QChar(QChar::Null));
}

// Opens a regular file for appending, or says -1. O_NONBLOCK keeps a pipe of that name from
// blocking the open; it means nothing to a regular file.
int openForAppending(const QByteArray &path, int furtherFlags)
{
    const int flags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | furtherFlags;
    const int descriptor = open(path.constData(), flags, 0666);
    struct stat status = {};
    if (descriptor >= 0 && (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

// Waits for the lock, though not for ever: whoever holds it may have been halted.
bool lock(int descriptor)
{
    const auto deadline = std::chrono::steady_clock::now() + longestLockWait;
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return true; // A file system without locks.
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(lockPollInterval);
    }
    return true;
}

// Whether the path still names the file that the descriptor has open.
bool isStill(int descriptor, const QByteArray &path)
{
    struct stat opened = {};
    struct stat named = {};
    return fstat(descriptor, &opened) == 0 && lstat(path.constData(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// Opens and locks what the path names, or says -1. While waiting for the lock the file may have
// been moved or removed by whoever held it; then it is somebody else's now, and the path is looked
// up again.
int openLocked(const QByteArray &path, int furtherFlags)
{
    for (;;) {
        const int descriptor = openForAppending(path, furtherFlags);
        if (descriptor < 0)
            return -1;
        const bool isLocked = lock(descriptor);
        if (isLocked && isStill(descriptor, path))
            return descriptor;
        close(descriptor);
        if (!isLocked)
            return -1;
    }
}

void writeAll(int descriptor, const QByteArray &bytes)
{
    const char *next = bytes.constData();
    auto left = static_cast<size_t>(bytes.size());
    while (left > 0) {
        const ssize_t written = write(descriptor, next, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        next += written;
        left -= static_cast<size_t>(written);
    }
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
bool copyThenRemove(const QString &from, const QString &to)
{
    QFile source(from);
    QSaveFile target(to);
    if (!source.open(QIODevice::ReadOnly) || !target.open(QIODevice::WriteOnly))
        return false;
    while (!source.atEnd()) {
        const QByteArray piece = source.read(1 << 20);
        if (piece.isEmpty() || target.write(piece) != piece.size())
            return false;
    }
    return target.commit() && QFile::remove(from);
}

} // namespace

QString Files::join(const QString &directory, const QString &name)
{
    const QChar separator = QLatin1Char('/');
    // Without a directory the name is relative; a separator would make it one of the root's.
    if (directory.isEmpty() || directory.endsWith(separator))
        return directory + name;
    return directory + separator + name;
}

QString Files::replaceExtension(const QString &path, const QString &extension)
{
    const qsizetype nameStart = path.lastIndexOf(QLatin1Char('/')) + 1;
    const qsizetype dot = path.lastIndexOf(QLatin1Char('.'));
    const QString stem = dot > nameStart ? path.left(dot) : path;
    return stem + QLatin1Char('.') + extension;
}

bool Files::isPlainName(const QString &name)
{
    return isExpressible(name) && !name.contains(QLatin1Char('/')) && name != QLatin1String(".") &&
           name != QLatin1String("..") && QFile::encodeName(name).size() <= longestName;
}

bool Files::exists(const QString &path)
{
    return isExpressible(path) && QFileInfo::exists(path);
}

void Files::createDirectory(const QString &path)
{
    if (isExpressible(path))
        QDir().mkpath(path);
}

quint64 Files::size(const QString &path)
{
    struct stat status = {};
    if (!isExpressible(path) || lstat(QFile::encodeName(path).constData(), &status) != 0)
        return 0;
    return S_ISREG(status.st_mode) ? static_cast<quint64>(status.st_size) : 0;
}

quint64 Files::room(const QString &path)
{
    struct statvfs status = {};
    const QByteArray directory = QFile::encodeName(QFileInfo(path).path());
    const bool isKnown = statvfs(directory.constData(), &status) == 0 && status.f_blocks > 0;
    return isKnown ? quint64(status.f_bavail) * status.f_frsize
                   : std::numeric_limits<quint64>::max();
}

void Files::append(const QString &path, const QByteArray &bytes)
{
    if (!isExpressible(path))
        return;
    const int descriptor = openLocked(QFile::encodeName(path), O_CREAT);
    if (descriptor < 0)
        return;
    writeAll(descriptor, bytes);
    close(descriptor);
}

void Files::remove(const QString &path)
{
    if (isExpressible(path))
        unlink(QFile::encodeName(path).constData());
}

bool Files::move(const QString &from, const QString &to)
{
    if (!isExpressible(from) || !isExpressible(to))
        return false;
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    const Renamed renamed = renameWithoutReplacing(source, target);
    if (renamed != Renamed::NotPossible)
        return renamed == Renamed::Yes;

    struct stat status = {};
    if (lstat(target.constData(), &status) == 0)
        return false;
    if (std::rename(source.constData(), target.constData()) == 0)
        return true;
    return errno == EXDEV && copyThenRemove(from, to);
}

std::optional<QString> Files::readText(const QString &path)
{
    QFile file(path);
    if (!isExpressible(path) || !QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    // Stateless, so that a character cut off at the end counts as an error.
    QStringDecoder decode(QStringConverter::encodingForData(bytes).value_or(QStringConverter::Utf8),
                          QStringConverter::Flag::Stateless);
    const QString text = decode(bytes);
    if (decode.hasError())
        return std::nullopt;
    return text;
}

QString Files::expandTilde(const QString &path)
{
    return path.startsWith(QLatin1String("~/")) ? QDir::homePath() + path.mid(1) : path;
}

FileGuard::FileGuard(const QString &path)
{
    if (isExpressible(path))
        descriptor_ = openLocked(QFile::encodeName(path), 0);
}

FileGuard::~FileGuard()
{
    if (descriptor_ >= 0)
        close(descriptor_);
}

} // namespace ZVPlatform
