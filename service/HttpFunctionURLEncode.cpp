#include "HttpFunctionURLEncode.h"

#include "XXTEA.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>

namespace {

QByteArray sealingKey()
{
    return QByteArrayLiteral("u8jzPde0IgxLd6GncfBAepfJBd0");
}

// Hexadecimal is converted in blocks of a fixed size by loops without branches, because compilers
// turn those into vector instructions; digit by digit it would cost up to half of what the cipher
// costs.
constexpr qsizetype blockSize = 128;
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

/// What an ASCII character is worth as a digit, from 0 to 15, or more than 15 for no digit. Minimum
/// and maximum stand for the decisions: '9' is moved to the top of the range, so that characters
/// after it wrap round to the bottom, where the maximum tells them from '0'; characters before 'A'
/// wrap round to the top, where the minimum keeps the sum from coming back.
uchar digitValue(uchar character)
{
    const auto moved = static_cast<uchar>(character + (0xFF - '9'));
    const auto digit = static_cast<uchar>(std::max<uchar>(moved, 6) - (0xFF - 9));
    const auto upperCase = static_cast<uchar>(character & ~0x20);
    const auto fromA = static_cast<uchar>(upperCase - 'A');
    const auto letter = static_cast<uchar>(std::min<uchar>(fromA, 0xFF - 10) + 10);
    return std::min(digit, letter);
}

/// False when one of the characters is no hexadecimal digit; the bytes then mean nothing.
bool readDigits(const char16_t *digits, uchar *bytes)
{
    NibbleBlock nibbles;
    char16_t allDigits = 0;
    for (size_t i = 0; i < nibbles.size(); ++i)
        allDigits |= digits[i];
    for (size_t i = 0; i < nibbles.size(); ++i)
        nibbles[i] = static_cast<uchar>(digits[i]);
    for (uchar &nibble : nibbles)
        nibble = digitValue(nibble);
    uchar allNibbles = 0;
    for (const uchar nibble : nibbles)
        allNibbles |= nibble;
    for (size_t i = 0; i < blockSize; ++i)
        bytes[i] = static_cast<uchar>(nibbles[2 * i] << 4 | nibbles[2 * i + 1]);
    return allDigits <= 0x7F && allNibbles <= 0xF;
}

/// The bytes of a text that consists of pairs of digits and nothing else, absent for any other.
std::optional<QByteArray> fromProperHex(const QString &hex)
{
    if (hex.size() % 2 != 0 || hex.size() > std::numeric_limits<int32_t>::max())
        return std::nullopt;
    QByteArray data(hex.size() / 2, Qt::Uninitialized);
    const auto *digits = reinterpret_cast<const char16_t *>(hex.constData());
    auto *bytes = reinterpret_cast<uchar *>(data.data());
    qsizetype left = data.size();
    for (; left >= blockSize; left -= blockSize) {
        if (!readDigits(digits, bytes))
            return std::nullopt;
        digits += 2 * blockSize;
        bytes += blockSize;
    }
    DigitBlock lastDigits;
    lastDigits.fill(u'0');
    std::copy_n(digits, 2 * left, lastDigits.begin());
    ByteBlock lastBytes;
    if (!readDigits(lastDigits.data(), lastBytes.data()))
        return std::nullopt;
    std::copy_n(lastBytes.begin(), left, bytes);
    return data;
}

/// Reads whatever it is given. Characters are counted, in 32 bits, and UTF-8 bytes are read: there
/// are never fewer of those, and the one beyond the last, for an odd count, is the closing zero.
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
