#include "RegularFile.h"

#include <QFile>
#include <QStringList>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace {

constexpr int kReading = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

FileDescriptor ifRegular(FileDescriptor file)
{
    struct stat attributes = {};
    if (!file.isOpen() || ::fstat(file.get(), &attributes) != 0 || S_ISREG(attributes.st_mode))
        return file;
    errno = S_ISDIR(attributes.st_mode) ? EISDIR : EINVAL;
    return {};
}

} // namespace

FileDescriptor RegularFile::open(const QString &path)
{
    return ifRegular(FileDescriptor(::open(QFile::encodeName(path).constData(), kReading)));
}

FileDescriptor RegularFile::openWithoutLinks(const QString &path)
{
    QStringList names = path.split(u'/', Qt::SkipEmptyParts);
    if (names.isEmpty())
        return {};
    const QString last = names.takeLast();
    FileDescriptor folder(::open("/", O_PATH | O_CLOEXEC));
    for (const QString &name : names)
        folder = FileDescriptor(::openat(folder.get(), QFile::encodeName(name).constData(),
                                         O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return ifRegular(FileDescriptor(
        ::openat(folder.get(), QFile::encodeName(last).constData(), kReading | O_NOFOLLOW)));
}
