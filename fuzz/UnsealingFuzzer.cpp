#include "service/HttpFunctionURLEncode.h"
#include "service/XXTEA.h"

#include <cstdlib>

/// Hexadecimal, the cipher and UTF-8, with whatever comes: nothing may crash, and whatever has been
/// sealed must come back.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const QString text = QString::fromUtf8(bytes);

    HttpFunctionURLEncode::dataFromHexString(text);
    HttpFunctionURLEncode::dataFromHexString(QString::fromLatin1(bytes));
    XXTEA::decryptToString(bytes, QStringLiteral("key"));

    const std::optional<QString> unsealed = HttpFunctionURLEncode::decode(text);
    for (const QString &plain : {text, unsealed.value_or(QString())}) {
        const QString sealed = HttpFunctionURLEncode::encode(plain);
        if (sealed.isEmpty() != plain.isEmpty())
            std::abort();
        if (!plain.isEmpty() && HttpFunctionURLEncode::decode(sealed) != plain)
            std::abort();
    }
    return 0;
}
