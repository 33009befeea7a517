#include "release/ReleaseKeys.h"
#include "release/ReleaseSignature.h"
#include "release/ReleaseStatement.h"
#include "service/CheckUpdateResponse.h"

#include <cstdint>
#include <cstdlib>

/// Keys, signatures and statements of whatever bytes; the first says which. What is read as one
/// holds what it must, comes out the same when it is written and read again, and nothing is signed.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const auto trusted =
        ReleaseKeys::read({"RWQxMjM0NTY3ONdamAGCsQq31Uv+08lkBzoO4XLz2qYjJa8CGmj3B1Ea"});
    if (size == 0)
        return 0;
    const QByteArray text(reinterpret_cast<const char *>(data + 1),
                          static_cast<qsizetype>(size - 1));
    switch (data[0] % 3) {
    case 0:
        if (const auto key = ReleaseKey::read(text);
            key && (key->bytes().size() != 32 || key->name().size() != 16))
            std::abort();
        break;
    case 1:
        if (const auto signature = ReleaseSignature::read(text)) {
            const auto again = ReleaseSignature::fromBase64(signature->toBase64());
            if (!again || again->toBase64() != signature->toBase64())
                std::abort();
            for (const ReleaseKey &key : trusted->keys()) {
                if (again->fits(text, key))
                    std::abort();
            }
        }
        break;
    default:
        if (const auto statement = ReleaseStatement::read(text)) {
            const CheckUpdateResponse record(QString::fromUtf8(text));
            if (record.ZVUpdateVersion() != statement->version || statement->size == 0 ||
                record.ZVMD5()->toLower() != statement->md5 || statement->sha256.size() != 32)
                std::abort();
        }
    }
    return 0;
}
