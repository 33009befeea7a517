#include "XXTEA.h"

#include "../platform/settings/Text.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr uint32_t delta = 0x9E3779B9;
constexpr qsizetype keySize = 16;
constexpr qsizetype wordSize = sizeof(uint32_t);

using Words = std::vector<uint32_t>;
using KeyWords = std::array<uint32_t, keySize / wordSize>;

KeyWords keyWords(const QByteArray &key)
{
    const Words words = xxtea_to_uint_array(key.leftJustified(keySize, '\0'), false);
    KeyWords result;
    std::copy_n(words.begin(), result.size(), result.begin());
    return result;
}

// The first size bytes of the words, which are used up.
QByteArray bytesOf(Words &words, size_t size)
{
    qToLittleEndian<uint32_t>(words.data(), static_cast<qsizetype>(words.size()), words.data());
    return QByteArray(reinterpret_cast<const char *>(words.data()), static_cast<qsizetype>(size));
}

uint32_t roundCount(const Words &words)
{
    return static_cast<uint32_t>(6 + 52 / words.size());
}

// What a word changes by in one round: next and previous are its neighbours in the ring of words.
inline uint32_t mix(uint32_t next, uint32_t previous, uint32_t sum, uint32_t keyWord)
{
    return (((previous >> 5) ^ (next << 2)) + ((next >> 3) ^ (previous << 4))) ^
           ((sum ^ next) + (keyWord ^ previous));
}

void encipher(Words &words, const KeyWords &key)
{
    const size_t last = words.size() - 1;
    uint32_t *const v = words.data();
    uint32_t sum = 0;
    uint32_t previous = v[last];
    for (uint32_t round = roundCount(words); round > 0; --round) {
        sum += delta;
        const uint32_t e = (sum >> 2) & 3;
        for (size_t p = 0; p < last; ++p)
            previous = v[p] += mix(v[p + 1], previous, sum, key[(p & 3) ^ e]);
        previous = v[last] += mix(v[0], previous, sum, key[(last & 3) ^ e]);
    }
}

void decipher(Words &words, const KeyWords &key)
{
    const size_t last = words.size() - 1;
    uint32_t *const v = words.data();
    uint32_t next = v[0];
    for (uint32_t sum = roundCount(words) * delta; sum != 0; sum -= delta) {
        const uint32_t e = (sum >> 2) & 3;
        for (size_t p = last; p > 0; --p)
            next = v[p] -= mix(next, v[p - 1], sum, key[(p & 3) ^ e]);
        next = v[0] -= mix(next, v[last], sum, key[e]);
    }
}

// Runs work; running out of memory in it makes its result absent.
template <typename Work>
std::optional<QByteArray> absentWithoutMemory(Work work)
{
    try {
        return work();
    } catch (const std::bad_alloc &) {
        return std::nullopt;
    }
}

std::optional<QString> toBase64(const std::optional<QByteArray> &bytes)
{
    if (!bytes)
        return std::nullopt;
    return QString::fromLatin1(bytes->toBase64());
}

// Whatever is not of the Base64 alphabet is skipped; what is left must be padded to whole groups.
std::optional<QByteArray> fromBase64(const QString &base64)
{
    constexpr QByteArrayView others = "+/=";
    QByteArray characters;
    for (const char character : base64.toLatin1()) {
        const char letter = static_cast<char>(character | 0x20);
        if ((letter >= 'a' && letter <= 'z') || (character >= '0' && character <= '9') ||
            others.contains(character))
            characters.append(character);
    }
    if (characters.size() % 4 != 0)
        return std::nullopt;
    auto decoded =
        QByteArray::fromBase64Encoding(characters, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return std::move(*decoded);
}

} // namespace

std::vector<uint32_t> xxtea_to_uint_array(const QByteArray &bytes, bool includeLength)
{
    const auto size = static_cast<size_t>(bytes.size());
    const size_t count = size / wordSize + (size % wordSize != 0 ? 1 : 0);
    Words words(count + (includeLength ? 1 : 0));
    if (size != 0)
        std::memcpy(words.data(), bytes.constData(), size);
    qFromLittleEndian<uint32_t>(words.data(), static_cast<qsizetype>(count), words.data());
    if (includeLength)
        words[count] = static_cast<uint32_t>(size);
    return words;
}

std::optional<QByteArray> XXTEA::encrypt(const QByteArray &data, const QByteArray &key)
{
    if (data.isEmpty())
        return std::nullopt;
    return absentWithoutMemory([&] {
        Words words = xxtea_to_uint_array(data, true);
        encipher(words, keyWords(key));
        return bytesOf(words, words.size() * wordSize);
    });
}

std::optional<QByteArray> XXTEA::decrypt(const QByteArray &data, const QByteArray &key)
{
    // One word has no neighbour to be mixed with, and a length word alone says nothing.
    if (data.size() <= wordSize)
        return std::nullopt;
    return absentWithoutMemory([&]() -> std::optional<QByteArray> {
        Words words = xxtea_to_uint_array(data, false);
        decipher(words, keyWords(key));

        const uint64_t mostBytes = (words.size() - 1) * wordSize;
        const uint64_t length = words.back();
        if (length > mostBytes || length + wordSize <= mostBytes)
            return std::nullopt;
        return bytesOf(words, length);
    });
}

std::optional<QByteArray> XXTEA::encrypt(const QByteArray &data, const QString &stringKey)
{
    return encrypt(data, stringKey.toUtf8());
}

std::optional<QString> XXTEA::encryptToBase64String(const QByteArray &data, const QByteArray &key)
{
    return toBase64(encrypt(data, key));
}

std::optional<QString> XXTEA::encryptToBase64String(const QByteArray &data,
                                                    const QString &stringKey)
{
    return toBase64(encrypt(data, stringKey));
}

std::optional<QByteArray> XXTEA::encryptString(const QString &text, const QByteArray &key)
{
    return encrypt(text.toUtf8(), key);
}

std::optional<QByteArray> XXTEA::encryptString(const QString &text, const QString &stringKey)
{
    return encrypt(text.toUtf8(), stringKey);
}

std::optional<QString> XXTEA::encryptStringToBase64String(const QString &text,
                                                          const QByteArray &key)
{
    return encryptToBase64String(text.toUtf8(), key);
}

std::optional<QString> XXTEA::encryptStringToBase64String(const QString &text,
                                                          const QString &stringKey)
{
    return encryptToBase64String(text.toUtf8(), stringKey);
}

std::optional<QByteArray> XXTEA::decrypt(const QByteArray &data, const QString &stringKey)
{
    return decrypt(data, stringKey.toUtf8());
}

std::optional<QByteArray> XXTEA::decryptBase64String(const QString &base64, const QByteArray &key)
{
    const std::optional<QByteArray> data = fromBase64(base64);
    return data ? decrypt(*data, key) : std::nullopt;
}

std::optional<QByteArray> XXTEA::decryptBase64String(const QString &base64,
                                                     const QString &stringKey)
{
    return decryptBase64String(base64, stringKey.toUtf8());
}

std::optional<QString> XXTEA::decryptToString(const QByteArray &data, const QByteArray &key)
{
    const std::optional<QByteArray> plain = decrypt(data, key);
    if (!plain)
        return std::nullopt;
    return ZVPlatform::textFromUtf8(*plain);
}

std::optional<QString> XXTEA::decryptToString(const QByteArray &data, const QString &stringKey)
{
    return decryptToString(data, stringKey.toUtf8());
}

std::optional<QString> XXTEA::decryptBase64StringToString(const QString &base64,
                                                          const QByteArray &key)
{
    const std::optional<QByteArray> data = fromBase64(base64);
    return data ? decryptToString(*data, key) : std::nullopt;
}

std::optional<QString> XXTEA::decryptBase64StringToString(const QString &base64,
                                                          const QString &stringKey)
{
    return decryptBase64StringToString(base64, stringKey.toUtf8());
}

std::optional<QByteArray> xxteaEncrypt(const QByteArray &data, const QByteArray &key)
{
    return XXTEA::encrypt(data, key);
}

std::optional<QByteArray> xxteaDecrypt(const QByteArray &data, const QByteArray &key)
{
    return XXTEA::decrypt(data, key);
}
