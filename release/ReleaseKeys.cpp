#include "ReleaseKeys.h"

#include "ReleaseSignature.h"

using namespace ZVPlatform;

Result<ReleaseKeys> ReleaseKeys::read(const QList<QByteArray> &texts)
{
    if (texts.isEmpty() || texts.size() > most)
        return Failure{QStringLiteral("There must be one to %1 release keys, not %2.")
                           .arg(most)
                           .arg(texts.size())};
    ReleaseKeys keys;
    for (const QByteArray &text : texts) {
        const auto key = ReleaseKey::read(text);
        if (!key)
            return Failure{
                QStringLiteral("Release key %1 %2.").arg(keys.keys_.size() + 1).arg(key.error())};
        keys.keys_.append(*key);
    }
    return keys;
}

std::optional<ReleaseKey> ReleaseKeys::signer(const QByteArray &statement,
                                              const QStringList &signatures) const
{
    if (signatures.size() > mostSignatures)
        return std::nullopt;
    for (const QString &text : signatures) {
        const auto signature = ReleaseSignature::fromBase64(text);
        for (const ReleaseKey &key : keys_) {
            if (signature && signature->fits(statement, key))
                return key;
        }
    }
    return std::nullopt;
}
