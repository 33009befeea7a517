#pragma once

#include <QByteArray>

#include <memory>
#include <vector>

#include <openssl/evp.h>

/// A maker's pair of keys.
class SigningKey
{
public:
    /// A pair of its own for each seed.
    explicit SigningKey(unsigned char seed = 's')
        : key_(EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, std::vector(32, seed).data(),
                                            32),
               &EVP_PKEY_free)
    {
    }

    /// The 32 bytes of the public key.
    QByteArray bytes() const
    {
        QByteArray bytes(32, '\0');
        size_t size = 32;
        EVP_PKEY_get_raw_public_key(key_.get(), reinterpret_cast<unsigned char *>(bytes.data()),
                                    &size);
        return bytes;
    }
    /// The public key as the usual tools write it.
    QByteArray line() const { return ("Ed" + number_ + bytes()).toBase64(); }
    /// The 64 bytes of a signature.
    QByteArray sign(const QByteArray &message) const
    {
        QByteArray signature(64, '\0');
        size_t size = 64;
        const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                              &EVP_MD_CTX_free);
        EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get());
        EVP_DigestSign(context.get(), reinterpret_cast<unsigned char *>(signature.data()), &size,
                       reinterpret_cast<const unsigned char *>(message.constData()),
                       static_cast<size_t>(message.size()));
        return signature;
    }
    /// A signature as it stands in a reply.
    QByteArray signature(const QByteArray &message) const
    {
        return ("Ed" + number_ + sign(message)).toBase64();
    }

private:
    const QByteArray number_{"12345678"};
    const std::shared_ptr<EVP_PKEY> key_;
};
