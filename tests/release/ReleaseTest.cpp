#include "platform/crypto/Ed25519.h"
#include "release/ReleaseKeys.h"
#include "release/ReleaseSignature.h"
#include "support/SigningKey.h"

#include <gtest/gtest.h>

using namespace ZVPlatform;

namespace {

QByteArray bytes(const char *hex)
{
    return QByteArray::fromHex(hex);
}

// A key, a message and a signature of RFC 8032.
const QByteArray key = bytes("3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c");
const QByteArray message = bytes("72");
const QByteArray signature =
    bytes("92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da"
          "085ac1e43e15996e458f3613d0f11d8c387b2eaeb4302aeeb00d291612bb0c00");

} // namespace

// The last rows are what OpenSSL makes of signatures about which libraries differ. A key of small
// order signs everything; who has one trusts nobody.
TEST(Ed25519, IsAsPublished)
{
    const QByteArray zero(32, '\0');
    const QByteArray identity = bytes("01").leftJustified(32, '\0');
    struct
    {
        QByteArray key, message, signature;
        bool isRight;
    } const rows[] = {
        {key, message, signature, true},
        {bytes("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a"), "",
         bytes("e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e065224901555fb8821590a33bacc6"
               "1e39701cf9b46bd25bf5f0595bbe24655141438e7a100b"),
         true},
        {bytes("fc51cd8e6218a1a38da47ed00230f0580816ed13ba3303ac5deb911548908025"), bytes("af82"),
         bytes("6291d657deec24024827e69c3abe01a30ce548a284743a445e3680d7db5ac3ac18ff9b538d16f290ae"
               "67f760984dc6594a7c15e9716ed28dc027beceea1ec40a"),
         true},
        {key, message + message, signature, false},
        {key, message, signature.chopped(1), false},
        {key.chopped(1), message, signature, false},
        {QByteArray(32, '\xff'), message, signature, false},
        // The first one's, with the order of the base point added to its second half.
        {bytes("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a"), "",
         bytes("e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e06522490155"
               "4c8c7872aa064e049dbb3013fbf29380d25bf5f0595bbe24655141438e7a101b"),
         false},
        {identity, message, identity + zero, true},
        {identity, message, identity.leftJustified(63, '\0') + '\x80', false},
        {bytes("ee").leftJustified(31, '\xff') + '\x7f', message, identity + zero, true},
    };
    for (const auto &row : rows)
        EXPECT_EQ(isEd25519Signature(row.signature, row.message, row.key), row.isRight)
            << row.key.toHex().constData() << ' ' << row.signature.toHex().constData();
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
    const QString number = QStringLiteral("8877665544332211");
    const std::pair<QByteArray, QString> rows[] = {
        {line, number},
        {"untrusted comment: a secret key, or none\r\n" + line + "\r\n", number},
        {pemOf("PUBLIC KEY", pem), QStringLiteral("3d4017c3e843895a")},
        {"", {}},
        {"untrusted comment: nothing more\n", {}},
        {line.chopped(4), {}},
        {line.chopped(1) + '!', {}},
        {("RW" + bytes("1122334455667788") + key).toBase64(), {}},
        {("Ed" + QByteArray(102, 's')).toBase64(), {}},
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
        }
    }
    EXPECT_TRUE(ReleaseKey::read(pemOf("PRIVATE KEY", secretPem)).error().contains(u"secret"));
    EXPECT_TRUE(
        ReleaseKey::read(("Ed" + QByteArray(102, 's')).toBase64()).error().contains(u"secret"));
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
