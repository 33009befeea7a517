#include "HttpFunctionURLEncode.h"

#include "XXTEA.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace {

QByteArray sealingKey()
{
    return QByteArrayLiteral("u8jzPde0IgxLd6GncfBAepfJBd0");
}

bool isHexDigit(char character)
{
    return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}

} // namespace

QString HttpFunctionURLEncode::encode(const QString &text)
{
    const auto cipher = XXTEA::encryptString(text, sealingKey()).value_or(QByteArray());
    return QString::fromLatin1(cipher.toHex().toUpper());
}

std::optional<QString> HttpFunctionURLEncode::decode(const QString &sealed)
{
    return XXTEA::decryptToString(dataFromHexString(sealed), sealingKey());
}

std::optional<QByteArray> HttpFunctionURLEncode::decodeBytes(const QString &sealed)
{
    return XXTEA::decrypt(dataFromHexString(sealed), sealingKey());
}

// Reads whatever it is given. Characters are counted, in 32 bits, and UTF-8 bytes are read: there
// are never fewer of those, and the one beyond the last, for an odd count, is the closing zero.
QByteArray HttpFunctionURLEncode::dataFromHexString(const QString &hex)
{
    const auto count = static_cast<int32_t>(hex.size());
    const QByteArray utf8 = hex.toUtf8();
    if (count == utf8.size() && count % 2 == 0 && std::all_of(utf8.begin(), utf8.end(), isHexDigit))
        return QByteArray::fromHex(utf8); // As nearly always, and much faster than what follows.
    const char *const characters = utf8.constData();
    QByteArray data;
    data.reserve(std::max(count, 0) / 2 + 1);
    for (qsizetype i = 0; i < count; i += 2) {
        const char pair[] = {characters[i], characters[i + 1], '\0'};
        data.append(static_cast<char>(std::strtoul(pair, nullptr, 16)));
    }
    return data;
}
