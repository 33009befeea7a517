#include "FilePlacing.h"

#include <QFile>

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

bool copyBytes(QFile *source, QFile *target)
{
    constexpr qint64 pieceSize = 1 << 20;
    while (!source->atEnd()) {
        const QByteArray piece = source->read(pieceSize);
        if (piece.isEmpty() || target->write(piece) != piece.size())
            return false;
    }
    return target->flush();
}

bool makeLink(const QString &source, const QString &path)
{
    return link(QFile::encodeName(source).constData(), QFile::encodeName(path).constData()) == 0;
}

// Makes a file at path with source's contents, which outlives a loss of power.
Result<void> fill(const QString &path, const QString &source, FilePlacing::Sharing sharing)
{
    QFile from(source);
    if (!from.open(QIODevice::ReadOnly))
        return Failure{u"%1: cannot be read: %2"_s.arg(source, from.errorString())};
    QFile to(path);
    if (!to.open(QIODevice::WriteOnly))
        return Failure{u"%1: cannot be written: %2"_s.arg(path, to.errorString())};
    if (!shareBlocks(from, to)) {
        if (sharing == FilePlacing::Sharing::HardLink && to.remove() && makeLink(source, path))
            return {};
        if ((!to.isOpen() && !to.open(QIODevice::WriteOnly)) || !copyBytes(&from, &to))
            return Failure{
                u"%1: cannot be copied to %2: %3"_s.arg(source, path, qt_error_string())};
    }
    if (fsync(to.handle()) != 0)
        return Failure{u"%1: cannot be written: %2"_s.arg(path, qt_error_string())};
    return {};
}

} // namespace

Result<void> FilePlacing::place(const QString &source, const QString &target, Sharing sharing)
{
    const QString temporary = target + unfinishedSuffix;
    QFile::remove(temporary);
    auto placed = fill(temporary, source, sharing);
    if (placed && std::rename(QFile::encodeName(temporary).constData(),
                              QFile::encodeName(target).constData()) != 0)
        placed = Failure{u"%1: cannot be put in place: %2"_s.arg(target, qt_error_string())};
    // Renaming one name of a file to another of its names leaves both.
    QFile::remove(temporary);
    return placed;
}
