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
#include <unistd.h>

namespace ZVPlatform {

namespace {

constexpr size_t windowSize = 4 << 20; // bytes of the map that are in memory at once
constexpr size_t pieceSize = 64 << 10; // bytes; small enough to be in the processor's cache

/// MD5 by OpenSSL, which is faster than Qt's by a tenth; by Qt on machines where OpenSSL refuses it.
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

    // Brings a window into memory, or says null where it cannot be read: touching a page of a
    // failing disk, or behind the end of a file that was cut off, would end the process.
    const char *populate(size_t offset, size_t length)
    {
#ifdef MADV_POPULATE_READ
        if (bytes_ != MAP_FAILED && madvise(at(offset), length, MADV_POPULATE_READ) == 0)
            return at(offset);
#endif
        return nullptr;
    }

    void drop(size_t offset, size_t length) { madvise(at(offset), length, MADV_DONTNEED); }

private:
    char *at(size_t offset) const { return static_cast<char *>(bytes_) + offset; }

    const size_t size_;
    void *const bytes_;
};

// Adds what a map cannot show: of file systems that cannot map, and systems that cannot populate.
bool addByReading(Md5 &md5, int descriptor, size_t offset, size_t length)
{
    std::vector<char> piece(std::min(pieceSize, length));
    while (length > 0) {
        const ssize_t got = pread(descriptor, piece.data(), std::min(piece.size(), length),
                                  static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        md5.add(piece.data(), static_cast<size_t>(got));
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
    for (size_t offset = 0; offset < size; offset += windowSize) {
        if (stopped())
            return std::nullopt;
        const size_t length = std::min(windowSize, size - offset);
        if (const char *bytes = map.populate(offset, length)) {
            md5.add(bytes, length);
            map.drop(offset, length);
        } else if (!addByReading(md5, descriptor, offset, length)) {
            return digestOfNothing();
        }
    }
    return md5.result();
}

} // namespace ZVPlatform
