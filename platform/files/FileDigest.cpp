#include "FileDigest.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include <sys/stat.h>
#include <unistd.h>

namespace ZVPlatform {

namespace {

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

QByteArray digestOfNothing()
{
    return Md5().result();
}

} // namespace

QByteArray md5OfFile(const QString &path, const std::function<bool()> &stopped)
{
    QFile file(path);
    // Only a regular file is opened: opening a pipe would wait for its other end.
    if (path.contains(QChar(QChar::Null)) || !QFileInfo(path).isFile() ||
        !file.open(QIODevice::ReadOnly))
        return digestOfNothing();
    const auto digest = md5OfOpenFile(file.handle(), stopped);
    return digest && !digest->isEmpty() ? *digest : digestOfNothing();
}

std::optional<QByteArray> md5OfOpenFile(int descriptor, const std::function<bool()> &stopped)
{
    struct stat status = {};
    fstat(descriptor, &status);
    const size_t size = static_cast<quint32>(status.st_size);
    if (size == 0)
        return digestOfNothing();

    // Read rather than mapped: where a page of a map cannot be had, as on a failing disk or behind
    // the end of a file that is cut off meanwhile, the process is ended. It costs a twentieth.
    Md5 md5;
    const std::unique_ptr<char[]> piece(new (std::nothrow) char[pieceSize]);
    if (!piece)
        return std::nullopt;
    for (size_t offset = 0; offset < size;) {
        if (stopped && stopped())
            return std::nullopt;
        const ssize_t got = pread(descriptor, piece.get(), std::min(pieceSize, size - offset),
                                  static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return QByteArray();
        md5.add(piece.get(), static_cast<size_t>(got));
        offset += static_cast<size_t>(got);
    }
    return md5.result();
}

} // namespace ZVPlatform
