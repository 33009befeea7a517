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

/// A digest by OpenSSL, which is faster than Qt's; by Qt on machines where OpenSSL refuses it.
class Digest
{
public:
    Digest(const EVP_MD *byOpenSsl, QCryptographicHash::Algorithm byQt) : hash_(byQt)
    {
        if (context_ && !EVP_DigestInit_ex(context_.get(), byOpenSsl, nullptr))
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
        QByteArray digest(EVP_MD_CTX_size(context_.get()), Qt::Uninitialized);
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
    QCryptographicHash hash_;
};

Digest md5Digest()
{
    return {EVP_md5(), QCryptographicHash::Md5};
}

QByteArray digestOfNothing()
{
    return md5Digest().result();
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

std::optional<FileDigests> digestsOfOpenFile(int descriptor, WithSha256 withSha256,
                                             const std::function<bool()> &stopped)
{
    struct stat status = {};
    fstat(descriptor, &status);
    const auto size = static_cast<quint64>(status.st_size);
    const quint64 md5Size = static_cast<quint32>(size);
    const quint64 toRead = withSha256 == WithSha256::Yes ? size : md5Size;

    // Read rather than mapped: where a page of a map cannot be had, as on a failing disk or behind
    // the end of a file that is cut off meanwhile, the process is ended. It costs a twentieth.
    Digest md5 = md5Digest();
    Digest sha256(EVP_sha256(), QCryptographicHash::Sha256);
    const std::unique_ptr<char[]> piece(new (std::nothrow) char[pieceSize]);
    if (!piece)
        return std::nullopt;
    for (quint64 offset = 0; offset < toRead;) {
        if (stopped && stopped())
            return std::nullopt;
        const ssize_t got =
            pread(descriptor, piece.get(), std::min<quint64>(pieceSize, toRead - offset),
                  static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return FileDigests();
        const auto length = static_cast<quint64>(got);
        if (offset < md5Size)
            md5.add(piece.get(), std::min(length, md5Size - offset));
        if (withSha256 == WithSha256::Yes)
            sha256.add(piece.get(), length);
        offset += length;
    }
    return FileDigests{md5.result(), withSha256 == WithSha256::Yes ? sha256.result() : QByteArray(),
                       size};
}

std::optional<QByteArray> md5OfOpenFile(int descriptor, const std::function<bool()> &stopped)
{
    const auto digests = digestsOfOpenFile(descriptor, WithSha256::No, stopped);
    return digests ? std::optional(digests->md5) : std::nullopt;
}

} // namespace ZVPlatform
