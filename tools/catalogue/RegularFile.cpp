#include "RegularFile.h"

#include <QFile>
#include <QStringList>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

using namespace ZVPlatform;

namespace {

constexpr int reading = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

// With errno, when it is not.
FileDescriptor ifRegular(FileDescriptor file)
{
    struct stat attributes = {};
    if (!file.isOpen() || ::fstat(file.get(), &attributes) != 0 || S_ISREG(attributes.st_mode))
        return file;
    errno = S_ISDIR(attributes.st_mode) ? EISDIR : EINVAL;
    return {};
}

} // namespace

Result<QByteArray> RegularFile::read(const QString &path)
{
    const auto opened =
        ifRegular(FileDescriptor(::open(QFile::encodeName(path).constData(), reading)));
    if (!opened.isOpen())
        return Failure{qt_error_string()};
    QFile file;
    file.open(opened.get(), QIODevice::ReadOnly);
    return file.readAll();
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
        ::openat(folder.get(), QFile::encodeName(last).constData(), reading | O_NOFOLLOW)));
}
