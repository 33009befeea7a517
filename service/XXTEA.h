#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

/// Lays bytes out as the cipher's 32-bit words, little-endian and zero-padded to whole words. With
/// includeLength one more word follows that holds the low 32 bits of the byte count.
std::vector<uint32_t> xxtea_to_uint_array(const QByteArray &bytes, bool includeLength);

/// The XXTEA block cipher (corrected block TEA) over whole byte strings, with the trailing length
/// word that the update service expects.
///
/// Stateless; every function may be called from any thread. Keys of any length are accepted: the
/// first 16 bytes count, shorter keys are filled up with zero bytes. A result that cannot be
/// produced, for want of memory for the block included, is absent (std::nullopt) and no exception.
/// The cipher does not authenticate: a wrong key is noticed only because the length word hardly
/// ever comes out right.
class XXTEA
{
public:
    /// Enciphers data. Absent when data is empty. The result is 4 * ceil(size / 4) + 4 bytes long.
    static std::optional<QByteArray> encrypt(const QByteArray &data, const QByteArray &key);
    static std::optional<QByteArray> encrypt(const QByteArray &data, const QString &stringKey);
    static std::optional<QString> encryptToBase64String(const QByteArray &data,
                                                        const QByteArray &key);
    static std::optional<QString> encryptToBase64String(const QByteArray &data,
                                                        const QString &stringKey);
    static std::optional<QByteArray> encryptString(const QString &text, const QByteArray &key);
    static std::optional<QByteArray> encryptString(const QString &text, const QString &stringKey);
    static std::optional<QString> encryptStringToBase64String(const QString &text,
                                                              const QByteArray &key);
    static std::optional<QString> encryptStringToBase64String(const QString &text,
                                                              const QString &stringKey);

    /// Deciphers data. Absent when data is empty, 4 bytes or shorter, or when the length word it
    /// deciphers to does not fit the block (a wrong key or altered bytes).
    static std::optional<QByteArray> decrypt(const QByteArray &data, const QByteArray &key);
    static std::optional<QByteArray> decrypt(const QByteArray &data, const QString &stringKey);
    /// As decrypt(), from Base64 text in which characters outside the alphabet are passed over;
    /// absent also when its padding is broken.
    static std::optional<QByteArray> decryptBase64String(const QString &base64,
                                                         const QByteArray &key);
    static std::optional<QByteArray> decryptBase64String(const QString &base64,
                                                         const QString &stringKey);
    /// As decrypt(), read as UTF-8 text; absent also when the plain bytes are not valid UTF-8.
    static std::optional<QString> decryptToString(const QByteArray &data, const QByteArray &key);
    static std::optional<QString> decryptToString(const QByteArray &data, const QString &stringKey);
    static std::optional<QString> decryptBase64StringToString(const QString &base64,
                                                              const QByteArray &key);
    static std::optional<QString> decryptBase64StringToString(const QString &base64,
                                                              const QString &stringKey);
};

/// XXTEA::encrypt() and XXTEA::decrypt() as functions of the data.
std::optional<QByteArray> xxteaEncrypt(const QByteArray &data, const QByteArray &key);
std::optional<QByteArray> xxteaDecrypt(const QByteArray &data, const QByteArray &key);
