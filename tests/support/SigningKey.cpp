#include "SigningKey.h"

#include <openssl/evp.h>

namespace {

EVP_PKEY *keyOf(const std::shared_ptr<void> &key)
{
    return static_cast<EVP_PKEY *>(key.get());
}

unsigned char *writable(QByteArray &bytes)
{
    return reinterpret_cast<unsigned char *>(bytes.data());
}

} // namespace

SigningKey::SigningKey(char seed)
    : key_(EVP_PKEY_new_raw_private_key(
               EVP_PKEY_ED25519, nullptr,
               reinterpret_cast<const unsigned char *>(QByteArray(32, seed).constData()), 32),
           [](void *key) { EVP_PKEY_free(static_cast<EVP_PKEY *>(key)); })
{
}

QByteArray SigningKey::bytes() const
{
    QByteArray bytes(32, '\0');
    size_t size = 32;
    EVP_PKEY_get_raw_public_key(keyOf(key_), writable(bytes), &size);
    return bytes;
}

QByteArray SigningKey::sign(const QByteArray &message) const
{
    QByteArray signature(64, '\0');
    size_t size = 64;
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    EVP_DigestSignInit(context, nullptr, nullptr, nullptr, keyOf(key_));
    EVP_DigestSign(context, writable(signature), &size,
                   reinterpret_cast<const unsigned char *>(message.constData()),
                   static_cast<size_t>(message.size()));
    EVP_MD_CTX_free(context);
    return signature;
}
