#include "service/XXTEA.h"
#include "support/TestData.h"

#include <climits>

namespace {

TEST(XXTEA, AgreesWithKnownCiphers)
{
    const auto hex = [](const QString &digits) { return QByteArray::fromHex(digits.toLatin1()); };
    for (const QStringList &row : testRows("service/data/cipher.tsv", 3)) {
        SCOPED_TRACE(qPrintable(row.join(u' ')));
        const QByteArray key = hex(row[0]), plain = hex(row[1]), cipher = hex(row[2]);
        EXPECT_EQ(XXTEA::encrypt(plain, key), cipher);
        EXPECT_EQ(XXTEA::decrypt(cipher, key), plain);
    }
}

TEST(XXTEA, GivesBackWhatItEnciphered)
{
    const QByteArray key = "0123456789abcdef";
    for (qsizetype size = 1; size < 80'000; size += size < 300 ? 1 : 6'971) {
        SCOPED_TRACE(size);
        QByteArray plain(size, '\0');
        for (qsizetype i = 0; i < size; ++i)
            plain[i] = static_cast<char>(i * i * 31 + i / 7);
        const std::optional<QByteArray> cipher = XXTEA::encrypt(plain, key);
        ASSERT_TRUE(cipher);
        EXPECT_EQ(cipher->size(), (size + 3) / 4 * 4 + 4);
        EXPECT_EQ(XXTEA::decrypt(*cipher, key), plain);
        EXPECT_EQ(XXTEA::decrypt(*cipher, QByteArray("0123456789abcdeF")), std::nullopt);
        EXPECT_EQ(XXTEA::decrypt(cipher->chopped(1), key), std::nullopt);
    }
}

TEST(XXTEA, RefusesWhatHoldsNoCipher)
{
    EXPECT_EQ(XXTEA::encrypt(QByteArray(), QByteArray("k")), std::nullopt);
    for (qsizetype size = 0; size <= 4; ++size)
        EXPECT_EQ(XXTEA::decrypt(QByteArray(size, '\0'), QByteArray("k")), std::nullopt) << size;
    EXPECT_EQ(XXTEA::decryptBase64String(QStringLiteral("*"), QByteArray("k")), std::nullopt);
    EXPECT_EQ(XXTEA::encryptStringToBase64String(QString(), QByteArray("k")), std::nullopt);

    // Blocks of "abcdefgh" and a length word, under the empty key: only some lengths fit.
    const std::pair<const char *, qsizetype> blocks[] = {{"d74d24511261a7239b1be62d", 4},
                                                         {"56c870115e0feb9b7b5ce599", 5},
                                                         {"696c8e1db3e1b9b545d26972", 8},
                                                         {"26cdd17de3173bd86856f0c0", 9}};
    for (const auto &[block, length] : blocks) {
        const auto plain = XXTEA::decrypt(QByteArray::fromHex(block), QByteArray());
        const bool fits = length == 5 || length == 8;
        EXPECT_EQ(plain, fits ? std::optional(QByteArray("abcdefgh").first(length)) : std::nullopt);
    }
}

TEST(XXTEA, ConvertsTextsKeysAndBase64Alike)
{
    const QString text = QStringLiteral("更新 update"), stringKey = QStringLiteral("clé");
    const QByteArray data = text.toUtf8(), key = stringKey.toUtf8();
    const QByteArray cipher = *XXTEA::encrypt(data, key);
    const QString base64 = QString::fromLatin1(cipher.toBase64());
    const QString wrapped = base64.first(5) + QStringLiteral("\r\n *~更") + base64.sliced(5);

    const auto expectAgreement = [&](const auto &anyKey) {
        EXPECT_EQ(XXTEA::encrypt(data, anyKey), cipher);
        EXPECT_EQ(XXTEA::encryptString(text, anyKey), cipher);
        EXPECT_EQ(XXTEA::encryptToBase64String(data, anyKey), base64);
        EXPECT_EQ(XXTEA::encryptStringToBase64String(text, anyKey), base64);
        EXPECT_EQ(XXTEA::decrypt(cipher, anyKey), data);
        EXPECT_EQ(XXTEA::decryptToString(cipher, anyKey), text);
        EXPECT_EQ(XXTEA::decryptBase64String(wrapped, anyKey), data);
        EXPECT_EQ(XXTEA::decryptBase64StringToString(wrapped, anyKey), text);
    };
    expectAgreement(key);
    expectAgreement(stringKey);
    const QString brokenTexts[] = {base64.chopped(1), base64 + QStringLiteral("="),
                                   base64 + QStringLiteral("===="), QStringLiteral("A===") + base64,
                                   QStringLiteral("AA=A") + base64};
    for (const QString &broken : brokenTexts) {
        EXPECT_EQ(XXTEA::decryptBase64String(broken, key), std::nullopt) << qPrintable(broken);
        EXPECT_EQ(XXTEA::decryptBase64StringToString(broken, key), std::nullopt);
    }
    EXPECT_EQ(xxteaEncrypt(data, key), cipher);
    EXPECT_EQ(xxteaDecrypt(cipher, key), data);
}

TEST(XXTEA, HasNoResultWhenMemoryRunsOut)
{
    if (ZVUPDATE_SANITIZED)
        GTEST_SKIP() << "a sanitizer ends the program instead of failing the allocation";
    // Says that it is larger than any memory; nothing may be read of it before that is noticed.
    const QByteArray endless = QByteArray::fromRawData("", LLONG_MAX / 8);
    EXPECT_EQ(XXTEA::encrypt(endless, QByteArray("k")), std::nullopt);
    EXPECT_EQ(XXTEA::decrypt(endless, QByteArray("k")), std::nullopt);
}

} // namespace
