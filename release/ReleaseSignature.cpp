#include "ReleaseSignature.h"

#include "../platform/crypto/Ed25519.h"
#include "SignatureText.h"

#include <utility>

using namespace ZVPlatform;
using namespace SignatureText;

namespace {

constexpr qsizetype longestSignatureFile = 64 * 1024; // bytes

// Minisign's default signs a digest of the message in its place.
constexpr auto ofMessage = "Ed";
constexpr auto ofDigest = "ED";

} // namespace

ReleaseSignature::ReleaseSignature(QByteArray bytes) : bytes_(std::move(bytes)) {}

Result<ReleaseSignature> ReleaseSignature::read(const QByteArray &file)
{
    if (file.size() > longestSignatureFile)
        return Failure{QStringLiteral("is too long for a signature")};
    const auto bytes =
        file.size() == ed25519SignatureSize ? std::optional(file) : SignatureText::bytes(file);
    const auto signature = bytes ? fromBytes(*bytes) : std::nullopt;
    if (!signature)
        return Failure{QStringLiteral("is no signature of signify, minisign or openssl")};
    return *signature;
}

std::optional<ReleaseSignature> ReleaseSignature::fromBase64(const QString &text)
{
    const auto bytes =
        QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    return bytes ? fromBytes(*bytes) : std::nullopt;
}

std::optional<ReleaseSignature> ReleaseSignature::fromBytes(const QByteArray &bytes)
{
    const bool isBare = bytes.size() == ed25519SignatureSize;
    const bool hasNumber = bytes.size() == algorithmSize + numberSize + ed25519SignatureSize &&
                           (bytes.startsWith(ofMessage) || bytes.startsWith(ofDigest));
    return isBare || hasNumber ? std::optional(ReleaseSignature(bytes)) : std::nullopt;
}

QString ReleaseSignature::toBase64() const
{
    return QString::fromLatin1(bytes_.toBase64());
}

bool ReleaseSignature::fits(const QByteArray &statement, const ReleaseKey &key) const
{
    const bool isOfDigest = bytes_.size() != ed25519SignatureSize && bytes_.startsWith(ofDigest);
    return isEd25519Signature(bytes_.last(ed25519SignatureSize),
                              isOfDigest ? blake2b512(statement) : statement, key.bytes());
}
