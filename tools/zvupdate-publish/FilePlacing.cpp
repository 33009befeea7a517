#include "FilePlacing.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

using namespace Qt::StringLiterals;

namespace {

QString reason()
{
    return QString::fromStdString(std::generic_category().message(errno));
}

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
std::optional<QString> fill(const QString &path, const QString &source,
                            FilePlacing::Sharing sharing)
{
    QFile from(source);
    if (!from.open(QIODevice::ReadOnly))
        return u"%1: cannot be read: %2"_s.arg(source, from.errorString());
    QFile to(path);
    if (!to.open(QIODevice::WriteOnly))
        return u"%1: cannot be written: %2"_s.arg(path, to.errorString());
    if (!shareBlocks(from, to)) {
        if (sharing == FilePlacing::Sharing::HardLink && to.remove() && makeLink(source, path))
            return std::nullopt;
        if ((!to.isOpen() && !to.open(QIODevice::WriteOnly)) || !copyBytes(&from, &to))
            return u"%1: cannot be copied to %2: %3"_s.arg(source, path, reason());
    }
    if (fsync(to.handle()) != 0)
        return u"%1: cannot be written: %2"_s.arg(path, reason());
    return std::nullopt;
}

} // namespace

std::optional<QString> FilePlacing::place(const QString &source, const QString &target,
                                          Sharing sharing)
{
    const QString temporary = target + unfinishedSuffix;
    QFile::remove(temporary);
    auto failure = fill(temporary, source, sharing);
    if (!failure && std::rename(QFile::encodeName(temporary).constData(),
                                QFile::encodeName(target).constData()) != 0)
        failure = u"%1: cannot be put in place: %2"_s.arg(target, reason());
    // Renaming one name of a file to another of its names leaves both.
    QFile::remove(temporary);
    return failure;
}
