#include "Ed25519.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <memory>

namespace ZVPlatform {

namespace {

template <auto free>
struct FreeBy
{
    template <class T>
    void operator()(T *object) const
    {
        free(object);
    }
};

using Key = std::unique_ptr<EVP_PKEY, FreeBy<EVP_PKEY_free>>;
using Context = std::unique_ptr<EVP_MD_CTX, FreeBy<EVP_MD_CTX_free>>;
using Source = std::unique_ptr<BIO, FreeBy<BIO_free>>;

const unsigned char *bytesOf(const QByteArray &bytes)
{
    return reinterpret_cast<const unsigned char *>(bytes.constData());
}

/// What OpenSSL notes of a failure is the thread's, which is the host's: it is taken back.
class ErrorMark
{
public:
    ErrorMark() { ERR_set_mark(); }
    ~ErrorMark() { ERR_pop_to_mark(); }
    ErrorMark(const ErrorMark &) = delete;
    ErrorMark &operator=(const ErrorMark &) = delete;
};

// Whoever gives a key that is locked is not asked for its password on the terminal.
int noPassword(char * /*buffer*/, int /*size*/, int /*writing*/, void * /*data*/)
{
    return -1;
}

} // namespace

bool isEd25519Signature(const QByteArray &signature, const QByteArray &message,
                        const QByteArray &publicKey)
{
    if (signature.size() != ed25519SignatureSize || publicKey.size() != ed25519KeySize)
        return false;
    const ErrorMark mark;
    const Key key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytesOf(publicKey), ed25519KeySize));
    const Context context(EVP_MD_CTX_new());
    return key && context &&
           EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
           EVP_DigestVerify(context.get(), bytesOf(signature), ed25519SignatureSize,
                            bytesOf(message), static_cast<size_t>(message.size())) == 1;
}

Result<QByteArray> ed25519KeyFromPem(const QByteArray &pem)
{
    const ErrorMark mark;
    const Source source(BIO_new_mem_buf(pem.constData(), static_cast<int>(pem.size())));
    const Key key(source ? PEM_read_bio_PUBKEY(source.get(), nullptr, noPassword, nullptr)
                         : nullptr);
    if (!key)
        return Failure{QStringLiteral("is not the PEM of a public key")};
    QByteArray bytes(ed25519KeySize, '\0');
    size_t size = ed25519KeySize;
    if (EVP_PKEY_base_id(key.get()) != EVP_PKEY_ED25519 ||
        EVP_PKEY_get_raw_public_key(key.get(), reinterpret_cast<unsigned char *>(bytes.data()),
                                    &size) != 1)
        return Failure{QStringLiteral("is not a key for Ed25519")};
    return bytes;
}

QByteArray blake2b512(const QByteArray &message)
{
    const ErrorMark mark;
    QByteArray digest(64, '\0');
    unsigned int size = 0;
    const bool isMade = EVP_Digest(message.constData(), static_cast<size_t>(message.size()),
                                   reinterpret_cast<unsigned char *>(digest.data()), &size,
                                   EVP_blake2b512(), nullptr) == 1;
    return isMade ? digest : QByteArray();
}

} // namespace ZVPlatform
