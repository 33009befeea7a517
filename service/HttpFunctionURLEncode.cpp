#include "HttpFunctionURLEncode.h"

#include "XXTEA.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace {

QByteArray sealingKey()
{
    return QByteArrayLiteral("u8jzPde0IgxLd6GncfBAepfJBd0");
}

// Hexadecimal is converted in blocks of a fixed size by loops without branches, because compilers
// turn those into vector instructions: digit by digit it would cost half of what the cipher costs.
constexpr qsizetype blockSize = 64;
using ByteBlock = std::array<uchar, blockSize>;
using DigitBlock = std::array<char16_t, 2 * blockSize>;
using NibbleBlock = std::array<uchar, 2 * blockSize>;

void writeDigits(const uchar *bytes, char16_t *digits)
{
    NibbleBlock nibbles;
    for (size_t i = 0; i < blockSize; ++i) {
        nibbles[2 * i] = static_cast<uchar>(bytes[i] >> 4);
        nibbles[2 * i + 1] = static_cast<uchar>(bytes[i] & 0xF);
    }
    for (size_t i = 0; i < nibbles.size(); ++i)
        digits[i] = static_cast<uchar>(nibbles[i] + (nibbles[i] > 9 ? 'A' - 10 : '0'));
}

QString upperCaseHex(const QByteArray &data)
{
    QString hex(2 * data.size(), Qt::Uninitialized);
    const auto *bytes = reinterpret_cast<const uchar *>(data.constData());
    auto *digits = reinterpret_cast<char16_t *>(hex.data());
    qsizetype left = data.size();
    for (; left >= blockSize; left -= blockSize) {
        writeDigits(bytes, digits);
        bytes += blockSize;
        digits += 2 * blockSize;
    }
    ByteBlock lastBytes{};
    DigitBlock lastDigits;
    std::copy_n(bytes, left, lastBytes.begin());
    writeDigits(lastBytes.data(), lastDigits.data());
    std::copy_n(lastDigits.begin(), 2 * left, digits);
    return hex;
}

/// False when one of the characters is no hexadecimal digit; the bytes then mean nothing.
bool readDigits(const char16_t *digits, uchar *bytes)
{
    NibbleBlock nibbles;
    for (size_t i = 0; i < nibbles.size(); ++i)
        nibbles[i] = static_cast<uchar>(digits[i] > 0xFF ? 0xFF : digits[i]);
    uchar all = 0;
    for (uchar &nibble : nibbles) {
        const auto digit = static_cast<uchar>(nibble - '0');
        const auto letter = static_cast<uchar>((nibble | 0x20) - 'a');
        const auto unlessDigit = static_cast<uchar>(letter < 6 ? letter + 10 : 0xFF);
        nibble = digit < 10 ? digit : unlessDigit;
    }
    for (const uchar nibble : nibbles)
        all |= nibble;
    for (size_t i = 0; i < blockSize; ++i)
        bytes[i] = static_cast<uchar>(nibbles[2 * i] << 4 | nibbles[2 * i + 1]);
    return all <= 0xF;
}

/// The bytes of a text that consists of pairs of digits and nothing else, absent for any other.
std::optional<QByteArray> fromProperHex(const QString &hex)
{
    if (hex.size() % 2 != 0)
        return std::nullopt;
    QByteArray data(hex.size() / 2, Qt::Uninitialized);
    const auto *digits = reinterpret_cast<const char16_t *>(hex.constData());
    auto *bytes = reinterpret_cast<uchar *>(data.data());
    qsizetype left = data.size();
    bool proper = true;
    for (; proper && left >= blockSize; left -= blockSize) {
        proper = readDigits(digits, bytes);
        digits += 2 * blockSize;
        bytes += blockSize;
    }
    if (!proper)
        return std::nullopt;
    DigitBlock lastDigits;
    ByteBlock lastBytes;
    lastDigits.fill(u'0');
    std::copy_n(digits, 2 * left, lastDigits.begin());
    proper = readDigits(lastDigits.data(), lastBytes.data());
    std::copy_n(lastBytes.begin(), left, bytes);
    return proper ? std::optional(data) : std::nullopt;
}

/// Reads whatever it is given. Characters are counted and UTF-8 bytes are read: there are never
/// fewer of those, and the one that an odd count asks for beyond the last is the terminating zero.
QByteArray fromLenientHex(const QString &hex)
{
    const auto count = static_cast<int32_t>(hex.size());
    const QByteArray utf8 = hex.toUtf8();
    const char *const characters = utf8.constData();
    QByteArray data;
    data.reserve(std::max(count, 0) / 2 + 1);
    for (qsizetype i = 0; i < count; i += 2) {
        const char pair[] = {characters[i], characters[i + 1], '\0'};
        data.append(static_cast<char>(std::strtoul(pair, nullptr, 16)));
    }
    return data;
}

} // namespace

QString HttpFunctionURLEncode::encode(const QString &text)
{
    return upperCaseHex(XXTEA::encryptString(text, sealingKey()).value_or(QByteArray()));
}

std::optional<QString> HttpFunctionURLEncode::decode(const QString &sealed)
{
    return XXTEA::decryptToString(dataFromHexString(sealed), sealingKey());
}

QByteArray HttpFunctionURLEncode::dataFromHexString(const QString &hex)
{
    if (std::optional<QByteArray> data = fromProperHex(hex))
        return *std::move(data);
    return fromLenientHex(hex);
}
