#include "PartialFile.h"

#include "Files.h"
#include "LockedFile.h"

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace ZVPlatform {

namespace {

QString text(FileError what)
{
    switch (what) {
    case FileError::InUse:
        return QStringLiteral("Another download is writing the same file.");
    case FileError::IsDirectory:
        return QStringLiteral("A directory is in the place of the file.");
    case FileError::NotAFile:
        return QStringLiteral("A link or a device is in the place of the file.");
    case FileError::HasOtherNames:
        return QStringLiteral("The file has a second name, by which others would see it change.");
    }
    return {};
}

Error fileError(FileError what)
{
    return {QLatin1String(fileErrorDomain), static_cast<int>(what), text(what)};
}

// Why what has the file's name cannot be appended to, ever; nothing where it may work another time.
std::optional<Error> obstacle(int error)
{
    switch (error) {
    case EISDIR:
        return fileError(FileError::IsDirectory);
    case ELOOP:  // A link.
    case EINVAL: // A device or a pipe,
    case ENXIO:  // or a socket.
        return fileError(FileError::NotAFile);
    default:
        return std::nullopt;
    }
}

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

std::optional<Error> PartialFile::append(const QByteArray &bytes)
{
    LockedFile file(path_);
    if (file.error() == ENOENT) {
        file.create();
        if (file.state() == LockedFile::State::Open)
            size_ = 0;
    }
    if (file.state() == LockedFile::State::InUse || file.error() == EEXIST)
        return fileError(FileError::InUse);
    if (file.state() == LockedFile::State::NotOpen)
        return obstacle(file.error());

    struct stat status = {};
    if (fstat(file.descriptor(), &status) != 0)
        return std::nullopt;
    // Others append to it, too, or have cut it off: one of us goes on, and knows where it is.
    if (static_cast<quint64>(status.st_size) != size_)
        return fileError(FileError::InUse);
    if (status.st_nlink > 1)
        return fileError(FileError::HasOtherNames);
    constexpr mode_t others = S_IRWXG | S_IRWXO;
    if ((status.st_mode & others) != 0)
        fchmod(file.descriptor(), status.st_mode & ~others); // Made so by an earlier version.
    size_ += writeAt(file.descriptor(), size_, bytes);
    return std::nullopt;
}

} // namespace ZVPlatform
