#include "AskingTest.h"

#include "../../service/HttpFunctionURLEncode.h"
#include "../support/DownloadModes.h"
#include "../support/SigningKey.h"

#include <QCryptographicHash>
#include <QDir>

using namespace Qt::StringLiterals;

namespace {

using Reply = ScriptedServer::Reply;

QByteArray hexDigest(const QByteArray &bytes, QCryptographicHash::Algorithm algorithm)
{
    return QCryptographicHash::hash(bytes, algorithm).toHex();
}

/// What a maker states of a release, before it is signed.
struct Statement
{
    QByteArray product = "P";
    QByteArray version = "2";
    QByteArray md5 = hexDigest(Offer::installer(), QCryptographicHash::Md5);
    QByteArray sha256 = hexDigest(Offer::installer(), QCryptographicHash::Sha256);
    QByteArray size = QByteArray::number(Offer::installer().size());
    QByteArray more = {};  // In the member that is for signatures.
    QByteArray outer = {}; // Beside it.

    QByteArray member() const
    {
        return R"("ZVSigned":{"type":"zvupdate-release-1","product":")" + product + R"(","size":)" +
               size + R"(,"sha256":")" + sha256 + "\"" + more + "}";
    }
    QByteArray bytes() const
    {
        return R"({"ZVUpdVersion":")" + version + R"(","ZVMD5":")" + md5 +
               R"(","ZVMemo":{"datas":[{"language":"en","memo":"New: 1"}]},)" + member() + outer +
               "}";
    }
};

const SigningKey &key()
{
    static const SigningKey key;
    return key;
}

QByteArray listOf(const QByteArray &signature)
{
    return "[\"" + signature + "\"]";
}

QByteArray reply(const QByteArray &statement, const QByteArray &signatures)
{
    const QString sealed = HttpFunctionURLEncode::encode(QString::fromUtf8(statement));
    return R"({"ok":true,"msg":"","data":")" + sealed.toLatin1() + R"(","sigs":)" + signatures +
           "}";
}

QByteArray signedReply(const Statement &statement)
{
    return reply(statement.bytes(), listOf(key().signature(statement.bytes())));
}

/// A host that demands the maker's signature, and whoever owns the way to the service.
class SignedRelease : public AskingTest, public testing::WithParamInterface<DownloadMode>
{
public:
    SignedRelease() { startAfresh(); }

    void startAfresh(const QVariantMap &preferences = {})
    {
        ControllerTest::startAfresh(preferences);
        EXPECT_TRUE(controller->setReleaseKeys({SigningKey('o').line(), key().line()}));
    }

private:
    const DownloadModeSwitch mode_{GetParam()};
};

} // namespace

TEST_P(SignedRelease, IsAllThatIsTaken)
{
    const QByteArray statement = Statement().bytes();
    const QByteArray signature = key().signature(statement);
    const QByteArray other = SigningKey('x').signature(statement);
    const auto offer = [](const QByteArray &reply) { return Offer{.reply = reply}; };
    const auto repeated = [](const QByteArray &entry, int times) {
        QByteArray list;
        for (int i = 0; i < times; ++i)
            list += "\"" + entry + "\",";
        return list;
    };
    QByteArray changed = statement;
    changed.replace("New: 1", "New: 2");
    const QByteArray bare = R"({"ZVUpdVersion":"2","ZVMD5":")" + Statement().md5 + R"("})";
    const QString all = loaded.join(u' ');
    const QString notSigned = u"not-signed"_s;
    const QString wrongDigest = u"download-started failed: wrong-digest"_s;

    const struct
    {
        const char *what;
        Offer offer;
        QString heard;
    } tricks[] = {
        {"nothing wrong", offer(signedReply({})), all},
        {"the right one among the most",
         offer(reply(statement, "[1," + repeated(other, 14) + "\"" + signature + "\"]")), all},
        {"good until then", offer(signedReply({.more = R"(,"expires":"2999-01-31T00:00:00Z")"})),
         all},
        {"no list", Offer(), notSigned},
        {"an empty list", offer(reply(statement, "[]")), notSigned},
        {"no list but a text", offer(reply(statement, "\"" + signature + "\"")), notSigned},
        {"a text of a megabyte", offer(reply(statement, "\"" + QByteArray(1 << 20, 'A') + "\"")),
         notSigned},
        {"more than the most",
         offer(reply(statement, "[" + repeated(other, 10000) + "\"" + signature + "\"]")),
         notSigned},
        {"another's", offer(reply(statement, listOf(other))), notSigned},
        {"another release's",
         offer(reply(statement, listOf(key().signature(Statement{.version = "3"}.bytes())))),
         notSigned},
        {"other notes", offer(reply(changed, listOf(signature))), notSigned},
        {"bytes after the object",
         offer(reply(statement + "{}", listOf(key().signature(statement + "{}")))), notSigned},
        {"what nobody knows", offer(signedReply({.more = "},\"other\":{"})), all},
        {"no member", offer(reply(bare, listOf(key().signature(bare)))), notSigned},
        {"a member twice", offer(signedReply({.outer = "," + Statement().member()})), notSigned},
        {"a digest twice", offer(signedReply({.outer = R"(,"ZVMD\u0035":"0")"})), notSigned},
        {"a type twice", offer(signedReply({.more = R"(,"type":"other")"})), notSigned},
        {"no size", offer(signedReply({.size = "0"})), notSigned},
        {"an end that is no date", offer(signedReply({.more = R"(,"expires":"soon")"})), notSigned},
        {"another product", offer(signedReply({.product = "Q"})), u"other-product"_s},
        {"what is running", offer(signedReply({.version = "1.0"})), u"not-newer"_s},
        {"what is older", offer(signedReply({.version = "0.9"})), u"not-newer"_s},
        {"good until a date that has passed",
         offer(signedReply({.more = R"(,"expires":"2020-01-31T00:00:00Z")"})), u"expired"_s},
        {"another size", offer(signedReply({.size = "7"})), u"wrong-size"_s},
        {"no size told",
         {.reply = signedReply({}), .sizeReply = Reply().send("HTTP/1.1 200 OK\r\n\r\n").close()},
         u"wrong-size"_s},
        {"another file", {.file = wrong, .reply = signedReply({})}, wrongDigest},
        {"a shorter file",
         {.file = good.chopped(1), .reply = signedReply({}), .sizeReply = Reply::whole(200, good)},
         wrongDigest},
        {"a longer file",
         {.file = good + good, .reply = signedReply({}), .sizeReply = Reply::whole(200, good)},
         u"download-started failed: wrong-size"_s},
        {"another MD5", offer(signedReply({.md5 = QByteArray(32, '0')})), wrongDigest},
        {"another SHA-256", offer(signedReply({.sha256 = QByteArray(64, '0')})), wrongDigest},
    };
    for (const auto &trick : tricks) {
        SCOPED_TRACE(trick.what);
        startAfresh();
        service.setOffer(trick.offer);
        EXPECT_EQ(ask().join(u' '), trick.heard);
        const bool isOffer = trick.heard.contains(u' ') || trick.heard == u"wrong-size";
        EXPECT_EQ(controller->mLastCheckUpdateResponse()->ok(), isOffer);
        EXPECT_EQ(controller->getUpdateMessageWithLang(u"en"_s).has_value(), isOffer);
        EXPECT_EQ(contentOf(diskImage).has_value(), trick.heard == all);
        EXPECT_LE(contentOf(temporary).value_or(QByteArray()).size(), good.size());
        EXPECT_TRUE(isOffer || check() == ZVUpdateProc::ZVNoUpdate);
    }
}

TEST_P(SignedRelease, IsWhatIsFoundOnDiskToo)
{
    // Both have the MD5 digest that is announced.
    const Statement lying{.sha256 = QByteArray(64, '0')};
    startAfresh({{digestKey, QString::fromLatin1(lying.md5)}});
    service.setOffer({.reply = signedReply(lying)});
    place(diskImage, good);
    EXPECT_EQ(ask(), QStringList({u"download-started"_s, u"failed: wrong-digest"_s}));
    EXPECT_EQ(contentOf(diskImage), std::nullopt);

    service.setOffer({.reply = signedReply({})});
    for (const QByteArray &useless : {wrong, wrong + wrong}) {
        startAfresh({{digestKey, QString::fromLatin1(lying.md5)}});
        place(temporary, useless);
        EXPECT_EQ(ask(Reason::Scheduled), loaded);
    }
    EXPECT_EQ(ask(), QStringList({u"installer-ready"_s, diskImage}));

    // Whoever else has the name meanwhile is not told of.
    startAfresh();
    const auto gate = std::make_shared<Gate>();
    service.setOffer({.gate = gate, .reply = signedReply({})});
    host.heard.clear();
    host.received = 0;
    EXPECT_TRUE(controller->startCheck(Reason::AskedByUser, &host));
    EXPECT_TRUE(waitFor([this] { return host.received > 0; }));
    place(diskImage, wrong);
    gate->open();
    EXPECT_TRUE(waitFor([this] { return host.heard.size() == 2; }));
    EXPECT_EQ(host.heard.join(u' '), u"download-started failed: directory-not-writable"_s);
    EXPECT_EQ(contentOf(temporary), good);
    EXPECT_EQ(ask(), loaded);
}

TEST_P(SignedRelease, IsNotHeldUpByAServiceThatIgnoresWhatIsThere)
{
    startAfresh({{digestKey, QString::fromLatin1(Statement().md5)}});
    place(temporary, good.first(1000));
    ScriptedServer server([this](const ScriptedServer::Request &request) {
        return request.command().startsWith(u"cmd=check") ? Reply::whole(200, signedReply({}))
               : request.command() == u"cmd=gettoken" ? Reply::whole(200, R"({"ok":1,"id":"T"})")
                                                      : Reply::whole(200, good);
    });
    writeFile(QDir::home().filePath(u"Documents/ConsoleZVUpdate.mac"_s), server.baseUrl().toUtf8());
    EXPECT_EQ(ask().join(u' '), u"download-started failed: wrong-size"_s);
    EXPECT_EQ(ask(), loaded);
}

TEST_P(SignedRelease, IsNotThereWithKeysThatAreNone)
{
    const QByteArray pem = "-----BEGIN PUBLIC KEY-----\nMFYwEAYHKoZIzj0CAQYFK4EEAAoDQgAE\n"
                           "-----END PUBLIC KEY-----\n";
    service.setOffer({.reply = signedReply({})});
    const QList<QByteArray> nine(9, key().line());
    for (const QList<QByteArray> &keys :
         {QList<QByteArray>(), nine, {key().line(), QByteArray("key")}, {pem}}) {
        startAfresh();
        const auto set = controller->setReleaseKeys(keys);
        ASSERT_FALSE(set);
        EXPECT_TRUE(set.error().endsWith(u'.')) << qPrintable(set.error());
        EXPECT_EQ(ask(), QStringList(u"not-signed"_s));
    }
    // It is too late by now, also for good ones.
    EXPECT_FALSE(controller->setReleaseKeys({key().line()}));
    EXPECT_EQ(ask(), QStringList(u"not-signed"_s));
}

TEST_P(SignedRelease, IsNotAskedForByOtherHosts)
{
    ControllerTest::startAfresh();
    EXPECT_EQ(ask(), loaded);
}

INSTANTIATE_TEST_SUITE_P(, SignedRelease,
                         testing::Values(DownloadMode::Session, DownloadMode::Connection),
                         testing::PrintToStringParamName());
