#include "../controller/ControllerTest.h"
#include "../service/TestData.h"
#include "../support/Campaign.h"

#include "service/BaseResponse.h"
#include "service/HttpFunctionURLEncode.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using Text = std::optional<QString>;

namespace {

/// What a field may hold, and how it is to be read as a text and as a truth.
struct Value
{
    const char *json = nullptr; ///< Null for a field that is not there.
    Text text = std::nullopt;
    bool truth = false;
};

const Value values[] = {
    {nullptr, {}, false},
    {"null", {}, false},
    {"true", {}, true},
    {"false", {}, false},
    {"0", u"0"_s, false},
    {"-1", u"-1"_s, true},
    {"2103", u"2103"_s, true},
    {"9007199254740993", u"9007199254740993"_s, true},
    {"9223372036854775807", u"9223372036854775807"_s, true},
    {"18446744073709551615", {}, true},
    {"-9223372036854775809", {}, true},
    {"1e300", {}, true},
    {"2.5", u"2.5"_s, true},
    {R"("")", u""_s, false},
    {R"("yes")", u"yes"_s, true},
    {R"("\u0000")", QString(QChar()), false},
    {"[]", {}, false},
    {R"(["yes"])", {}, false},
    {"{}", {}, false},
    {R"({"ok":true})", {}, false},
};

/// An object with one field of interest among others.
QString objectWith(const char *field, const Value &value, const QString &further = {})
{
    const QString start = u"{\"extra\":[1,{}]"_s + further;
    if (!value.json)
        return start + u'}';
    return start + u",\"%1\":%2}"_s.arg(QLatin1String(field), QLatin1String(value.json));
}

QString sealed(const QString &inner)
{
    return u"{\"ok\":true,\"data\":\"%1\"}"_s.arg(HttpFunctionURLEncode::encode(inner));
}

std::shared_ptr<CheckUpdateResponse> record(const QString &inner)
{
    return CheckUpdateResponse::getFromJson(sealed(inner));
}

auto notes(const QString &datas)
{
    return record(u"{\"ZVMemo\":{\"datas\":%1}}"_s.arg(datas))->mUpdateMsgDict();
}

TEST(HostileRecords, EachFieldMayHoldAnything)
{
    int tried = 0;
    for (const Value &value : values) {
        SCOPED_TRACE(value.json ? value.json : "absent");
        EXPECT_EQ(BaseResponse(objectWith("ok", value)).ok(), value.truth);
        EXPECT_EQ(CheckUpdateResponse::getFromJson(objectWith("ok", value))->ok(), value.truth);
        EXPECT_EQ(BaseResponse(objectWith("msg", value)).msg(), value.text);
        EXPECT_EQ(BaseResponse(objectWith("id", value)).ID(), value.text);
        EXPECT_EQ(BaseResponse(objectWith("data", value)).data(), value.text);

        EXPECT_EQ(record(objectWith("ZVUpdVersion", value))->ZVUpdateVersion(), value.text);
        EXPECT_EQ(record(objectWith("ZVMD5", value))->ZVMD5(), value.text);
        EXPECT_FALSE(record(objectWith("ZVMemo", value))->mUpdateMsgDict());
        const bool isList = value.json && value.json[0] == '[';
        EXPECT_EQ(notes(QLatin1String(value.json ? value.json : "null")).has_value(), isList);
        const qsizetype found = value.text ? 1 : 0;
        const QString memo = objectWith("memo", value, u",\"language\":\"en\""_s);
        EXPECT_EQ(notes(u'[' + memo + u']')->size(), found);
        const QString language = objectWith("language", value, u",\"memo\":\"x\""_s);
        EXPECT_EQ(notes(u'[' + language + u']')->size(), found);
        tried += 11;
    }
    Campaign::tried(tried);
}

/// A good reply of the service, and what it offers.
class DamagedReply : public testing::Test
{
public:
    // A reply that was damaged on its way offers what it offered before, or nothing.
    std::shared_ptr<CheckUpdateResponse> tryReply(const QByteArray &damaged)
    {
        ++tried;
        const auto reply = CheckUpdateResponse::getFromJson(QString::fromUtf8(damaged));
        if (reply->ZVUpdateVersion() || reply->ZVMD5()) {
            EXPECT_EQ(reply->ZVUpdateVersion(), whole_->ZVUpdateVersion()) << damaged.constData();
            EXPECT_EQ(reply->ZVMD5(), whole_->ZVMD5()) << damaged.constData();
        }
        return reply;
    }

    void tryBlock(const QByteArray &damaged)
    {
        const auto reply = tryReply("{\"ok\":true,\"data\":\"" + damaged.toHex() + "\"}");
        EXPECT_TRUE(reply->ok());
        EXPECT_EQ(reply->ZVUpdateVersion(), std::nullopt);
    }

    static void forEachTurnedBit(const QByteArray &bytes,
                                 const std::function<void(const QByteArray &)> &tryIt)
    {
        for (qsizetype bit = 0; bit < 8 * bytes.size(); ++bit) {
            QByteArray damaged = bytes;
            damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
            tryIt(damaged);
        }
    }

    const QString text =
        QJsonDocument::fromJson(testData("check-reply.json")).object().value(u"reply").toString();
    int tried = 0;

private:
    const std::shared_ptr<CheckUpdateResponse> whole_ = CheckUpdateResponse::getFromJson(text);
};

TEST_F(DamagedReply, MakesNoOtherOffer)
{
    const QByteArray bytes = text.toUtf8();
    for (qsizetype length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(tryReply(bytes.left(length))->ok());
    forEachTurnedBit(bytes, [this](const QByteArray &damaged) { tryReply(damaged); });

    // The sealed block by itself. It is enciphered as a whole, so all of it is needed.
    const auto block = HttpFunctionURLEncode::dataFromHexString(*BaseResponse(text).data());
    for (qsizetype length = 0; length < block.size(); ++length)
        tryBlock(block.left(length));
    forEachTurnedBit(block, [this](const QByteArray &damaged) { tryBlock(damaged); });
    Campaign::tried(tried);
}

// Texts that readers of JSON disagree on: whether there is an offer, and of what version.
TEST_F(ControllerTest, OddReplyTextsAreReadOrRefused)
{
    const QByteArray inner = "\"ZVUpdVersion\":\"2\",\"ZVMD5\":\"" + digest.toLatin1() + '"';
    const auto reply = [](const QByteArray &object) {
        return sealed(QString::fromUtf8(object)).toUtf8();
    };
    const QByteArray offer = reply('{' + inner + '}');
    const QByteArray tooLong(2 * 1024 * 1024, ' ');
    const std::pair<QByteArray, Text> cases[] = {
        {offer, u"2"_s},
        {"\xEF\xBB\xBF" + offer, u"2"_s},               // a byte order mark
        {offer + " \r\n", u"2"_s},                      // white space after it
        {offer + "x", {}},                              // anything else
        {offer + '\0', {}},                             //
        {offer + offer, {}},                            //
        {offer.chopped(1) + ",\"ok\":false}", {}},      // the last of two fields counts
        {"{\"ok\":false," + offer.mid(1), u"2"_s},      //
        {offer.chopped(1) + ",\"data\":null}", {}},     //
        {"{\"a\":\"\\uD800\"," + offer.mid(1), u"2"_s}, // half a character
        {"{\"a\":\"\xC0\xAF\"," + offer.mid(1), {}},    // not UTF-8
        {"{\"a\":\"\xED\xA0\x80\"," + offer.mid(1), {}},
        {tooLong + offer, {}},
        {tooLong.chopped(2 * offer.size()) + offer, u"2"_s},
        {"{\"a\":" + QByteArray(100000, '[') + QByteArray(100000, ']') + ',' + offer.mid(1), {}},
        {QByteArray(1000000, '{'), {}},
        // The parser takes memory for each value, whatever its length.
        {"{\"a\":[" + QByteArray("[],").repeated(30'000) + "0]," + offer.mid(1), u"2"_s},
        {"{\"a\":[" + QByteArray("[],").repeated(40'000) + "0]," + offer.mid(1), {}},
        {"{\"a\":\"\\\"" + QByteArray("[],").repeated(40'000) + "\"," + offer.mid(1), u"2"_s},
        {reply('{' + inner + "} x"), {}},
        {reply('{' + inner + ",\"ZVUpdVersion\":\"3\"}"), u"3"_s},
        {reply("{\"ZVMemo\":{\"datas\":[" + QByteArray(50000, '[') + "]}," + inner + '}'), {}},
        {reply("\xEF\xBB\xBF{" + inner + '}'), u"2"_s},
        {reply("[{" + inner + "}]"), {}},
        {"", {}},
        {QByteArray("\xFF\xFE{\0}\0", 6), {}},
    };
    for (const auto &[text, version] : cases) {
        SCOPED_TRACE((text.left(60) + " ... " + text.right(60)).toStdString());
        ScriptedServer server(ScriptedServer::Reply::whole(200, text));
        UpdateLogicFunc client;
        client.setMBaseURL(server.baseUrl());
        const auto found = client.doCheckUpdate(u"P"_s, u"1"_s);
        EXPECT_EQ(found->ok() ? found->ZVUpdateVersion() : std::nullopt, version);
    }
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(waitForDownload());
    EXPECT_EQ(contentOf(diskImage), good);
    Campaign::tried(std::size(cases));
}

} // namespace
