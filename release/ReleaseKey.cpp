#include "ReleaseKey.h"

#include "../platform/crypto/Ed25519.h"
#include "SignatureText.h"

#include <QList>

#include <algorithm>
#include <utility>

using namespace ZVPlatform;
using namespace SignatureText;

namespace {

constexpr qsizetype longestKeyText = 64 * 1024; // bytes

Failure<QString> secretKey()
{
    return {QStringLiteral("is a secret key, which is for nobody but its owner")};
}

constexpr qsizetype publicSize = algorithmSize + numberSize + ed25519KeySize;
constexpr qsizetype signatureSize = algorithmSize + numberSize + ed25519SignatureSize;

// Empty when a line is no key's.
QByteArray keyIn(const QByteArray &line)
{
    const auto decoded =
        QByteArray::fromBase64Encoding(line.trimmed(), QByteArray::AbortOnBase64DecodingErrors);
    return decoded && decoded.decoded.startsWith("Ed") ? decoded.decoded : QByteArray();
}

// Secret keys begin as public ones do, and are longer.
bool isSecretKey(const QByteArray &line)
{
    const qsizetype size = keyIn(line).size();
    return size > publicSize && size != signatureSize;
}

bool isPublicKey(const QByteArray &line)
{
    return keyIn(line).size() == publicSize;
}

// Only one would count, and nobody would miss the others before they are needed.
bool holdsSeveralKeys(const QByteArray &text)
{
    const QList<QByteArray> lines = text.split('\n');
    return std::count_if(lines.begin(), lines.end(), isPublicKey) + text.count("-----BEGIN") > 1;
}

// Anywhere in the text: files of several keys are easily put together.
bool holdsSecretKey(const QByteArray &text)
{
    const QList<QByteArray> lines = text.split('\n');
    return text.contains("PRIVATE KEY-----") ||
           std::any_of(lines.begin(), lines.end(), isSecretKey);
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
    if (holdsSecretKey(text))
        return secretKey();
    if (holdsSeveralKeys(text))
        return Failure{QStringLiteral("holds more than one key")};
    if (text.contains("-----BEGIN")) {
        auto key = ed25519KeyFromPem(text);
        return key ? Result(ReleaseKey(*std::move(key), {})) : Failure{key.error()};
    }
    const auto key = SignatureText::bytes(text);
    if (!key)
        return Failure{QStringLiteral("is neither a line of Base64 nor PEM")};
    if (key->size() == signatureSize)
        return Failure{QStringLiteral("is a signature and no key")};
    if (key->size() != publicSize || !key->startsWith("Ed"))
        return Failure{QStringLiteral("is no public key of signify or minisign")};
    return ReleaseKey(key->last(ed25519KeySize), key->mid(algorithmSize, numberSize));
}

QString ReleaseKey::name() const
{
    return number_.isEmpty() ? QString::fromLatin1(bytes_.first(numberSize).toHex())
                             : numberName(number_);
}

QByteArray ReleaseKey::text() const
{
    if (!number_.isEmpty())
        return ("Ed" + number_ + bytes_).toBase64();
    // What stands before the bytes of every Ed25519 key in DER.
    const QByteArray prefix = QByteArrayLiteral("\x30\x2a\x30\x05\x06\x03\x2b\x65\x70\x03\x21\x00");
    return "-----BEGIN PUBLIC KEY-----\n" + (prefix + bytes_).toBase64() +
           "\n-----END PUBLIC KEY-----";
}
