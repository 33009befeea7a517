#include "platform/crypto/Ed25519.h"
#include "release/ReleaseKeys.h"
#include "release/ReleaseSignature.h"
#include "support/SigningKey.h"
#include "support/TestData.h"

using namespace ZVPlatform;

namespace {

QByteArray bytes(const char *hex)
{
    return QByteArray::fromHex(hex);
}

// A key and a message of RFC 8032.
const QByteArray key = bytes("3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c");
const QByteArray message = bytes("72");

} // namespace

TEST(Ed25519, IsAsPublished)
{
    for (const QStringList &row : testRows("release/signatures.tsv", 4)) {
        const auto cell = [&row](qsizetype i) { return QByteArray::fromHex(row[i].toLatin1()); };
        EXPECT_EQ(isEd25519Signature(cell(2), cell(1), cell(0)), row[3] == u"yes")
            << qPrintable(row.join(u' '));
    }
    EXPECT_EQ(blake2b512("abc").toHex(),
              "ba80a53f981c4d0d6a2797b69f12f6e94c212f14685ac4b74b12bb6fdbffa2d17d87c5392aab792dc252"
              "d5de4533cc9518d38aa8dbf1925ab92386edd4009923");
}

TEST(ReleaseKey, IsReadAsToolsWriteIt)
{
    const QByteArray line = ("Ed" + bytes("1122334455667788") + key).toBase64();
    const QByteArray pem = bytes("302a300506032b6570032100") + key;
    const QByteArray secretPem = bytes("302e020100300506032b657004220420") + key;
    const auto pemOf = [](const QByteArray &name, const QByteArray &der) {
        return "-----BEGIN " + name + "-----\n" + der.toBase64() + "\n-----END " + name + "-----\n";
    };
    const QByteArray secretLine = ("Ed" + QByteArray(102, 's')).toBase64();
    const QString number = QStringLiteral("8877665544332211");
    const std::pair<QByteArray, QString> rows[] = {
        {line, number},
        {"untrusted comment: a secret key, or none\r\n" + line + "\r\n", number},
        {pemOf("PUBLIC KEY", pem), QStringLiteral("3d4017c3e843895a")},
        {line + '\n' + line, {}},
        {pemOf("PUBLIC KEY", pem) + line, {}},
        {"", {}},
        {"untrusted comment: nothing more\n", {}},
        {line.chopped(4), {}},
        {line.chopped(1) + '!', {}},
        {("RW" + bytes("1122334455667788") + key).toBase64(), {}},
        {secretLine, {}},
        {line + "\n" + secretLine, {}},
        {pemOf("PUBLIC KEY", pem) + secretLine + "\r\n", {}},
        {("Ed" + QByteArray(72, 's')).toBase64(), {}},
        {pemOf("PUBLIC KEY", secretPem), {}},
        {pemOf("PRIVATE KEY", secretPem), {}},
        {pemOf("PUBLIC KEY", "302a"), {}},
        {QByteArray(1 << 20, 'A'), {}},
    };
    for (const auto &[text, name] : rows) {
        const auto read = ReleaseKey::read(text);
        EXPECT_EQ(read ? read->name() : QString(), name) << text.left(100).constData();
        if (read) {
            EXPECT_EQ(read->bytes(), key);
            EXPECT_EQ(ReleaseKey::read(read->text())->bytes(), key);
            EXPECT_EQ(ReleaseKey::read(read->text())->name(), name);
            EXPECT_FALSE(read->text().contains("comment"));
        }
    }
    EXPECT_TRUE(ReleaseKey::read(pemOf("PRIVATE KEY", secretPem)).error().contains(u"secret"));
    EXPECT_TRUE(ReleaseKey::read(line + "\n" + secretLine).error().contains(u"secret"));
}

TEST(ReleaseSignature, IsReadAsToolsWriteIt)
{
    const SigningKey maker;
    const QByteArray plain = "Ed12345678" + maker.sign(message);
    const QByteArray ofDigest = "ED87654321" + maker.sign(blake2b512(message));
    const QByteArray more = "\ntrusted comment: of when\n" + QByteArray(64, 'c').toBase64() + '\n';
    const std::pair<QByteArray, bool> rows[] = {
        {plain.mid(10), true},
        {plain.mid(10).toBase64(), true},
        {"untrusted comment: by a tool\n" + plain.toBase64() + '\n', true},
        {"untrusted comment: by a tool\r\n" + ofDigest.toBase64() + more, true},
        {"Ed" + ofDigest.mid(2), false},
        {("Ed" + ofDigest.mid(2)).toBase64(), false},
        {("XX" + plain.mid(2)).toBase64(), false},
        {plain.chopped(1).toBase64(), false},
        {"", false},
        {"untrusted comment: nothing more\n", false},
    };
    const auto makersKey = ReleaseKey::read(maker.line());
    ASSERT_TRUE(makersKey);
    for (const auto &[file, isRight] : rows) {
        const auto read = ReleaseSignature::read(file);
        const auto again = read ? ReleaseSignature::fromBase64(read->toBase64()) : std::nullopt;
        EXPECT_EQ(again && again->fits(message, *makersKey), isRight) << file.constData();
        EXPECT_FALSE(again && again->fits(message + ' ', *makersKey));
    }
}
