#include "FileDigest.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace ZVPlatform {

namespace {

constexpr size_t windowSize = 4 << 20; // bytes of the map that are in memory at once
constexpr size_t pieceSize = 64 << 10; // bytes; small enough to be in the processor's cache

/// MD5 by OpenSSL, which is faster than Qt's by a tenth; by Qt on machines where OpenSSL refuses
/// it.
class Md5
{
public:
    Md5()
    {
        if (context_ && !EVP_DigestInit_ex(context_.get(), EVP_md5(), nullptr))
            context_.reset();
    }

    void add(const char *bytes, size_t length)
    {
        if (context_)
            EVP_DigestUpdate(context_.get(), bytes, length);
        else
            hash_.addData({bytes, static_cast<qsizetype>(length)});
    }

    QByteArray result()
    {
        if (!context_)
            return hash_.result();
        QByteArray digest(EVP_MD_size(EVP_md5()), Qt::Uninitialized);
        EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char *>(digest.data()),
                           nullptr);
        return digest;
    }

private:
    struct Free
    {
        void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
    };

    std::unique_ptr<EVP_MD_CTX, Free> context_{EVP_MD_CTX_new()};
    QCryptographicHash hash_{QCryptographicHash::Md5};
};

/// The first bytes of a file, mapped as a whole.
class FileMap
{
public:
    FileMap(int descriptor, size_t size)
        : size_(size), bytes_(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0))
    {
    }
    ~FileMap()
    {
        if (bytes_ != MAP_FAILED)
            munmap(bytes_, size_);
    }

    FileMap(const FileMap &) = delete;
    FileMap &operator=(const FileMap &) = delete;

    // Copies a part, or says false where it cannot be read. The system does the copying: touching
    // a page of a failing disk, or behind the end of a file that was cut off, would end the
    // process.
    bool read(char *to, size_t offset, size_t length) const
    {
#ifdef __linux__
        const iovec target{to, length};
        const iovec source{at(offset), length};
        return bytes_ != MAP_FAILED && process_vm_readv(getpid(), &target, 1, &source, 1, 0) ==
                                           static_cast<ssize_t>(length);
#else
        return false;
#endif
    }

    // Has the window that begins there in memory, and not the one before it.
    void moveWindow(size_t offset)
    {
        if (bytes_ == MAP_FAILED)
            return;
        if (offset >= windowSize)
            madvise(at(offset - windowSize), windowSize, MADV_DONTNEED);
#ifdef MADV_POPULATE_READ
        madvise(at(offset), std::min(windowSize, size_ - offset), MADV_POPULATE_READ);
#endif
    }

private:
    char *at(size_t offset) const
    {
        return static_cast<char *>(bytes_) + offset;
    }

    const size_t size_;
    void *const bytes_;
};

// Where the map cannot be read: on file systems that cannot map, and where the copying is
// forbidden.
bool readFile(int descriptor, char *to, size_t offset, size_t length)
{
    while (length > 0) {
        const ssize_t got = pread(descriptor, to, length, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        to += got;
        offset += static_cast<size_t>(got);
        length -= static_cast<size_t>(got);
    }
    return true;
}

QByteArray digestOfNothing()
{
    return Md5().result();
}

} // namespace

QByteArray md5OfFile(const QString &path)
{
    QFile file(path);
    // Only a regular file is opened: opening a pipe would wait for its other end.
    if (path.contains(QChar(QChar::Null)) || !QFileInfo(path).isFile() ||
        !file.open(QIODevice::ReadOnly))
        return digestOfNothing();
    return *md5OfOpenFile(file.handle(), [] { return false; });
}

std::optional<QByteArray> md5OfOpenFile(int descriptor, const std::function<bool()> &stopped)
{
    struct stat status = {};
    fstat(descriptor, &status);
    const size_t size = static_cast<quint32>(status.st_size);
    if (size == 0)
        return digestOfNothing();

    Md5 md5;
    FileMap map(descriptor, size);
    std::vector<char> piece(std::min(pieceSize, size));
    for (size_t offset = 0; offset < size; offset += pieceSize) {
        if (offset % windowSize == 0) {
            if (stopped())
                return std::nullopt;
            map.moveWindow(offset);
        }
        const size_t length = std::min(pieceSize, size - offset);
        if (!map.read(piece.data(), offset, length) &&
            !readFile(descriptor, piece.data(), offset, length))
            return digestOfNothing();
        md5.add(piece.data(), length);
    }
    return md5.result();
}

} // namespace ZVPlatform
