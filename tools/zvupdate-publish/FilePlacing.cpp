#include "FilePlacing.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

bool shareBlocks([[maybe_unused]] const QFile &source, [[maybe_unused]] const QFile &target)
{
#ifdef __linux__
    return ioctl(target.handle(), FICLONE, source.handle()) == 0;
#else
    return false;
#endif
}

bool copyPiece(QFile *source, QFile *target, qint64 end, const PieceDone &done)
{
    constexpr qint64 pieceSize = 1 << 20;
    while (source->pos() < end) {
        const QByteArray piece = source->read(std::min(pieceSize, end - source->pos()));
        if (piece.isEmpty() || target->write(piece) != piece.size())
            return false;
        done(piece.size());
    }
    return true;
}

// A file system that knows nothing of holes has one piece of data, the whole.
bool copyBytes(QFile *source, QFile *target, const PieceDone &done)
{
    const qint64 size = source->size();
    qint64 end = 0;
    while (end < size) {
        qint64 start = lseek(source->handle(), end, SEEK_DATA);
        if (start < 0 && errno == ENXIO)
            start = size; // Nothing follows but a hole.
        if (start < 0)
            return false;
        done(start - end);
        end = start == size ? size
                            : std::min<qint64>(size, lseek(source->handle(), start, SEEK_HOLE));
        if (end < 0 || !source->seek(start) || !target->seek(start) ||
            !copyPiece(source, target, end, done))
            return false;
    }
    return target->resize(size);
}

bool makeLink(const QString &source, const QString &path)
{
    return link(QFile::encodeName(source).constData(), QFile::encodeName(path).constData()) == 0;
}

// Makes a file at path with source's contents, which outlives a loss of power.
Result<void> fill(const QString &path, const QString &source, FilePlacing::Sharing sharing,
                  const PieceDone &done)
{
    QFile from(source);
    if (!from.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return Failure{u"%1: cannot be read: %2"_s.arg(source, from.errorString())};
    QFile to(path);
    if (!to.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return Failure{u"%1: cannot be written: %2"_s.arg(path, to.errorString())};
    if (shareBlocks(from, to)) {
        done(from.size());
    } else {
        if (sharing == FilePlacing::Sharing::HardLink && to.remove() && makeLink(source, path)) {
            done(from.size());
            return {};
        }
        if ((!to.isOpen() && !to.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) ||
            !copyBytes(&from, &to, done))
            return Failure{
                u"%1: cannot be copied to %2: %3"_s.arg(source, path, qt_error_string())};
    }
    if (fsync(to.handle()) != 0)
        return Failure{u"%1: cannot be written: %2"_s.arg(path, qt_error_string())};
    return {};
}

} // namespace

Result<void> FilePlacing::place(const QString &source, const QString &target, Sharing sharing,
                                const QString &sha256, const PieceDone &done)
{
    const QString temporary = target + unfinishedSuffix;
    QFile::remove(temporary);
    auto placed = fill(temporary, source, sharing, done);
    if (placed) {
        const auto found = InstallerDigests::both(QFileInfo(temporary).canonicalFilePath(), done);
        if (!found || found->sha256 != sha256)
            placed =
                Failure{u"%1: was written into while it was read; try again when it is whole"_s.arg(
                    source)};
    }
    if (placed && std::rename(QFile::encodeName(temporary).constData(),
                              QFile::encodeName(target).constData()) != 0)
        placed = Failure{u"%1: cannot be put in place: %2"_s.arg(target, qt_error_string())};
    // Renaming one name of a file to another of its names leaves both.
    QFile::remove(temporary);
    return placed;
}

Result<void> FilePlacing::write(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    // What is still in memory goes first: the commitment does not see that fail.
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
        file.commit())
        return {};
    return Failure{u"%1: cannot be written: %2"_s.arg(path, file.errorString())};
}
