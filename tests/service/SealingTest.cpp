#include "service/HttpFunctionURLEncode.h"
#include "support/TestData.h"

#include <cstdlib>

namespace {

constexpr auto bytes = &HttpFunctionURLEncode::dataFromHexString;

TEST(Sealing, AgreesWithKnownTexts)
{
    for (const QStringList &row : testRows("service/data/sealing.tsv", 2)) {
        EXPECT_EQ(HttpFunctionURLEncode::encode(row[0]), row[1]);
        EXPECT_EQ(HttpFunctionURLEncode::decode(row[1]), row[0]);
        EXPECT_EQ(HttpFunctionURLEncode::decode(row[1].toLower()), row[0]);
    }
}

TEST(Sealing, GivesBackEveryText)
{
    for (const QString &text :
         {QStringLiteral("\uFEFFmarked\uFEFF"), QString(QChar(u'\0')), QString(399, u'x'),
          QStringLiteral("a\0b").append(QChar(u'\0')), QStringLiteral("😀\u00E9\uFFFD")})
        EXPECT_EQ(HttpFunctionURLEncode::decode(HttpFunctionURLEncode::encode(text)), text);
    EXPECT_EQ(HttpFunctionURLEncode::encode(QString()), QString());
}

TEST(Sealing, RefusesWhatIsNotSealed)
{
    const char *const texts[] = {
        "", "0", "hello, world", "7D4470DA8E2DCE6836729BBA61EC3DB", // cut
        "7D4470DA8E2DCE6836729BBA61EC3DBC",                         // altered
        // What follows unseals to bytes that are not UTF-8: a stray byte, a character cut off at
        // the end, a needlessly long form, a surrogate, a value beyond the last character.
        "17CCFBDD7436CC8F", "EA8579C3F31207405951E78B", "53374B5020070E3C", "CF86B01661000709",
        "2EA01CE527C631D8"};
    for (const char *text : texts)
        EXPECT_EQ(HttpFunctionURLEncode::decode(QString::fromLatin1(text)), std::nullopt) << text;
    EXPECT_EQ(HttpFunctionURLEncode::decode(QStringLiteral("45CF7CCA7A378D42")), u"ok");
}

TEST(Hexadecimal, ReadsEveryPairAsStrtoulDoes)
{
    for (char first = 1; first < 127; ++first) {
        for (char second = 1; second < 127; ++second) {
            const char pair[] = {first, second, '\0'};
            const auto byte = static_cast<char>(std::strtoul(pair, nullptr, 16));
            ASSERT_EQ(bytes(QString::fromLatin1(pair)), QByteArray(1, byte)) << pair;
        }
    }
}

TEST(Hexadecimal, ReadsOddAndForeignTextsLeniently)
{
    const std::pair<const char16_t *, const char *> cases[] = {
        {u"", ""},
        {u"0", "00"},
        {u"ABC", "AB0C"},
        {u"zz", "00"},
        {u"-1", "FF"},
        {u"0x1", "0001"},
        {u" 1+2AG", "01020A"},
        // Three characters and four bytes: the count ends the reading, the last byte included.
        {u"\u00E9A1", "00A1"},
        {u"1\u00E9", "01"},
        // Digits in their low eight bits only, other digits, half a character.
        {u"\u0131\u0131", "00"},
        {u"\uFF11\uFF12", "00"},
        {u"\xD800\u0031", "00"}};
    for (const auto &[text, expected] : cases)
        EXPECT_EQ(bytes(QString::fromUtf16(text)).toHex().toUpper(), expected) << expected;
    EXPECT_EQ(bytes(QString(1, u'\0') + u'1'), QByteArray(1, '\0'));
}

} // namespace
