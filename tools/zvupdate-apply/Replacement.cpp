#include "Replacement.h"

#include "../../platform/files/Files.h"
#include "Archive.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr size_t pieceSize = 256 << 10; // bytes

Failure<QString> failed(const QString &what, int error = errno)
{
    return {what + u": "_s + qt_error_string(error)};
}

// Follows no link.
Result<void> removeAll(const QString &path)
{
    std::error_code failure;
    std::filesystem::remove_all(QFile::encodeName(path).constData(), failure);
    if (failure)
        return failed(u"\"%1\" cannot be removed"_s.arg(path), failure.value());
    return {};
}

bool rename(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

enum class Exchanged { Yes, Refused, NotPossible };

Exchanged exchangeNames(const QString &one, const QString &other)
{
    if (renameat2(AT_FDCWD, QFile::encodeName(one).constData(), AT_FDCWD,
                  QFile::encodeName(other).constData(), RENAME_EXCHANGE) == 0)
        return Exchanged::Yes;
    const bool isNotPossible = errno == EINVAL || errno == ENOSYS || errno == ENOTSUP;
    return isNotPossible ? Exchanged::NotPossible : Exchanged::Refused;
}

// Puts what has one name in the place of another, whose former owner gets the third name. Between
// the two steps a file has both, and a folder the third one alone.
bool moveInPlace(const QString &from, const QString &to, const QString &kept)
{
    const bool isLinked =
        link(QFile::encodeName(to).constData(), QFile::encodeName(kept).constData()) == 0;
    if (!isLinked && !rename(to, kept))
        return false;
    if (rename(from, to))
        return true;
    const int error = errno;
    rename(kept, to); // Of two names of one file it leaves both.
    if (isLinked)
        unlink(QFile::encodeName(kept).constData());
    errno = error;
    return false;
}

// Makes the names in a target's folder last. Where a folder cannot be flushed, nothing can be done.
void flushNames(const Target &target)
{
    const QByteArray folder = QFile::encodeName(QFileInfo(target.path).path());
    const FileDescriptor open(::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    fsync(open.get());
}

bool copyBytes(int from, int to)
{
    const auto piece = std::make_unique<char[]>(pieceSize);
    for (off_t offset = 0;;) {
        const ssize_t got = pread(from, piece.get(), pieceSize, offset);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == 0;
        for (ssize_t done = 0; done < got;) {
            const ssize_t step = write(to, piece.get() + done, static_cast<size_t>(got - done));
            if (step < 0 && errno != EINTR)
                return false;
            done += step < 0 ? 0 : step;
        }
        offset += got;
    }
}

} // namespace

Replacement::~Replacement()
{
    if (workFolder_.isOpen()) [[maybe_unused]]
        const auto removed = removeAll(target_.workFolder());
}

Result<void> Replacement::prepare()
{
    const QString path = target_.workFolder();
    const QByteArray name = QFile::encodeName(path);
    const auto is = [&name](const FileDescriptor &open) {
        struct stat opened = {};
        struct stat named = {};
        return fstat(open.get(), &opened) == 0 && lstat(name.constData(), &named) == 0 &&
               opened.st_dev == named.st_dev && opened.st_ino == named.st_ino &&
               opened.st_uid == geteuid();
    };
    constexpr int mostTries = 100; // Others may remove theirs between our making and locking it.
    for (int tries = 0; tries < mostTries; ++tries) {
        const int error = mkdir(name.constData(), S_IRWXU) == 0 ? 0 : errno;
        FileDescriptor open(
            ::open(name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!open.isOpen() && error != 0 && error != EEXIST)
            return failed(u"\"%1\" cannot be made"_s.arg(path), error);
        if (flock(open.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
            return Failure{u"another process is replacing \"%1\""_s.arg(target_.path)};
        if (!is(open))
            continue;
        workFolder_ = std::move(open);
        std::error_code failure;
        for (const auto &each : std::filesystem::directory_iterator(name.constData(), failure))
            std::filesystem::remove_all(each.path(), failure);
        return failure ? failed(u"\"%1\" cannot be emptied"_s.arg(path), failure.value())
                       : Result<void>();
    }
    return Failure{u"\"%1\" is in the way; remove it"_s.arg(path)};
}

QString Replacement::staged() const
{
    return Files::join(target_.workFolder(), u"new"_s);
}

Result<void> Replacement::stageFile(int descriptor)
{
    const FileDescriptor copy(openat(workFolder_.get(), "new",
                                     O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!copy.isOpen() || !copyBytes(descriptor, copy.get()) ||
        fchmod(copy.get(), target_.mode) != 0 || fsync(copy.get()) != 0)
        return failed(u"\"%1\" cannot be written"_s.arg(staged()));
    return {};
}

Result<void> Replacement::stageFolder(const Archive &archive)
{
    if (mkdirat(workFolder_.get(), "new", S_IRWXU) != 0)
        return failed(u"\"%1\" cannot be made"_s.arg(staged()));
    if (auto unpacked = archive.unpack(staged()); !unpacked)
        return unpacked;
    if (fchmodat(workFolder_.get(), "new", target_.mode | S_IRWXU, 0) != 0 ||
        syncfs(workFolder_.get()) != 0)
        return failed(u"\"%1\" cannot be written"_s.arg(staged()));
    return {};
}

// The new one takes the name of the previous one before the exchange, so that one rename both puts
// it in its place and gives the old one the name under which it is kept.
Result<void> Replacement::exchange()
{
    const QString previous = target_.previous();
    if (auto removed = removeAll(previous); !removed)
        return removed;
    if (!rename(staged(), previous))
        return failed(u"\"%1\" cannot be made"_s.arg(previous));
    const Exchanged exchanged = exchangeNames(previous, target_.path);
    int error = errno;
    bool isDone = exchanged == Exchanged::Yes;
    if (!isDone)
        rename(previous, staged());
    if (exchanged == Exchanged::NotPossible) {
        isDone = moveInPlace(staged(), target_.path, previous);
        error = errno;
    }
    if (!isDone && !Files::exists(target_.path)) // Nor could what had been begun be undone.
        return failed(u"\"%1\" stays \"%2\""_s.arg(target_.path, previous), error);
    if (!isDone)
        return failed(u"\"%1\" cannot be exchanged"_s.arg(target_.path), error);
    flushNames(target_);
    return {};
}

Result<void> Replacement::restore()
{
    const QString previous = target_.previous();
    const bool isExchanged = exchangeNames(previous, target_.path) == Exchanged::Yes;
    bool isDone = isExchanged;
    if (!isDone) // Whatever the reason: there is no other old one.
        isDone = target_.isFolder ? moveInPlace(previous, target_.path, staged())
                                  : rename(previous, target_.path);
    if (!isDone)
        return failed(u"\"%1\" cannot be brought back from \"%2\""_s.arg(target_.path, previous));
    flushNames(target_);
    if (isExchanged) // What cannot be removed is, when the next one is kept under that name.
        [[maybe_unused]]
        const auto removed = removeAll(previous);
    return {};
}
