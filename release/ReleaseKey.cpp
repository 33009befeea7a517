#include "ReleaseKey.h"

#include "../platform/crypto/Ed25519.h"
#include "SignatureText.h"

#include <utility>

using namespace ZVPlatform;
using namespace SignatureText;

namespace {

constexpr qsizetype longestKeyText = 64 * 1024; // bytes

Failure<QString> secretKey()
{
    return {QStringLiteral("is a secret key, which is for nobody but its owner")};
}

} // namespace

ReleaseKey::ReleaseKey(QByteArray bytes, QByteArray number)
    : bytes_(std::move(bytes)), number_(std::move(number))
{
}

Result<ReleaseKey> ReleaseKey::read(const QByteArray &text)
{
    if (text.size() > longestKeyText)
        return Failure{QStringLiteral("is too long for a key")};
    if (text.contains("PRIVATE KEY-----"))
        return secretKey();
    if (text.contains("-----BEGIN")) {
        auto key = ed25519KeyFromPem(text);
        return key ? Result(ReleaseKey(*std::move(key), {})) : Failure{key.error()};
    }
    const auto key = SignatureText::bytes(text);
    if (!key)
        return Failure{QStringLiteral("is neither a line of Base64 nor PEM")};
    constexpr qsizetype size = algorithmSize + numberSize + ed25519KeySize;
    if (key->size() == algorithmSize + numberSize + ed25519SignatureSize)
        return Failure{QStringLiteral("is a signature and no key")};
    if (key->size() > size && key->startsWith("Ed"))
        return secretKey();
    if (key->size() != size || !key->startsWith("Ed"))
        return Failure{QStringLiteral("is no public key of signify or minisign")};
    return ReleaseKey(key->last(ed25519KeySize), key->mid(algorithmSize, numberSize));
}

QString ReleaseKey::name() const
{
    return number_.isEmpty() ? QString::fromLatin1(bytes_.first(numberSize).toHex())
                             : numberName(number_);
}
