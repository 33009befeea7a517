#include "PartialFile.h"

#include "../KnownErrors.h"
#include "Files.h"
#include "LockedFile.h"

#include <QFile>

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace ZVPlatform {

namespace {

// Marks a file that was begun in the middle. To regular files the bit means nothing else.
constexpr mode_t middleMark = S_ISVTX;

// How many of the bytes are in the file now.
quint64 writeAt(int descriptor, quint64 offset, const QByteArray &bytes)
{
    const auto size = static_cast<size_t>(bytes.size());
    size_t written = 0;
    while (written < size) {
        const ssize_t step = pwrite(descriptor, bytes.constData() + written, size - written,
                                    static_cast<off_t>(offset + written));
        if (step < 0 && errno == EINTR)
            continue;
        if (step <= 0)
            break;
        written += static_cast<size_t>(step);
    }
    return written;
}

} // namespace

PartialFile::PartialFile(const QString &path) : path_(path), size_(Files::size(path)) {}

bool PartialFile::beginsInTheMiddle(const QString &path)
{
    struct stat status = {};
    return Files::isExpressible(path) && lstat(QFile::encodeName(path).constData(), &status) == 0 &&
           S_ISREG(status.st_mode) && (status.st_mode & middleMark) != 0;
}

Result<void, Error> PartialFile::append(const QByteArray &bytes)
{
    LockedFile file(path_);
    if (file.error() == ENOENT) {
        file.create();
        if (file.state() == LockedFile::State::Open && size_ > 0) {
            size_ = 0;
            beganInTheMiddle_ = true;
            fchmod(file.descriptor(), S_IRUSR | S_IWUSR | middleMark);
        }
    }
    if (file.state() == LockedFile::State::InUse || file.error() == EEXIST)
        return Failure{fileError(FileError::InUse)};
    if (file.error() == EISDIR)
        return Failure{fileError(FileError::IsDirectory)};

    // Whatever else keeps the bytes from the disk may have passed by the next piece; and what is in
    // the place of the file, but no directory, is removed when the digest has turned out wrong.
    if (file.state() != LockedFile::State::Open) {
        lose(file.error());
        return {};
    }
    struct stat status = {};
    fstat(file.descriptor(), &status);
    // Others append to it, too, or have cut it off: one of us goes on, and knows where it is.
    const bool isMarked = (status.st_mode & middleMark) != 0;
    if (static_cast<quint64>(status.st_size) != size_ || isMarked != beganInTheMiddle_)
        return Failure{fileError(FileError::InUse)};
    if (status.st_nlink > 1)
        return {};
    constexpr mode_t others = S_IRWXG | S_IRWXO;
    if ((status.st_mode & others) != 0)
        fchmod(file.descriptor(), status.st_mode & ~others); // Made so by an earlier version.
    const quint64 written = writeAt(file.descriptor(), size_, bytes);
    if (written < static_cast<quint64>(bytes.size()))
        lose(errno);
    size_ += written;
    return {};
}

// Of what else is in the place of the file, the digest will tell.
void PartialFile::lose(int reason)
{
    if (loss_ || reason == ELOOP || reason == EINVAL)
        return;
    const bool isFull = reason == ENOSPC || reason == EDQUOT;
    loss_ = fileError(isFull ? FileError::NoRoom : FileError::NotWritable);
    if (!isFull)
        loss_->localizedDescription += QLatin1String(" (%1)").arg(qt_error_string(reason));
}

} // namespace ZVPlatform
