#include "TestData.h"
#include "service/BaseResponse.h"
#include "service/CheckUpdateResponse.h"
#include "service/HttpFunctionURLEncode.h"
#include "service/LanguageCodes.h"
#include "service/UpdateLogicFunc.h"
#include "support/ScriptedServer.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>

using namespace Qt::StringLiterals;

namespace {

using Text = std::optional<QString>;

constexpr auto utf8 = [](const char *text) { return QString::fromUtf8(text); };

/// The notes in the order of their languages, as "en=Hello;zh-TW=...".
std::string listed(const CheckUpdateResponse::UpdateMessages &notes)
{
    QStringList list;
    for (auto note = notes.cbegin(); note != notes.cend(); ++note)
        list += note.key() + u'=' + note.value();
    list.sort();
    return list.join(u';').toStdString();
}

CheckUpdateResponse withNotes(const char *datas)
{
    return CheckUpdateResponse(utf8("{\"ZVMemo\":{\"datas\":") + utf8(datas) + utf8("}}"));
}

TEST(BaseResponse, ReadsTheTruthOfOk)
{
    for (const char *ok : {"true", "1", "-1", "0.5", "\"1\"", "\"yes\"", "\"Y\"", "\"true\"",
                           "\"T\"", "\" \\t+007\"", "\"-0y\"", "\"9x\""})
        EXPECT_TRUE(BaseResponse(utf8("{\"ok\":%1}").arg(utf8(ok))).ok()) << ok;
    for (const char *ok : {"false", "0", "0.0", "null", "[]", "[1]", "{}", "\"\"", "\"false\"",
                           "\"0\"", "\"no\"", "\"+-1\"", "\"x1\"", "\" + 1\"", "\"-000\""})
        EXPECT_FALSE(BaseResponse(utf8("{\"ok\":%1}").arg(utf8(ok))).ok()) << ok;
}

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

TEST(Records, MayHoldAnythingInEachField)
{
    const auto record = [](const QString &inner) {
        return CheckUpdateResponse::getFromJson(sealed(inner));
    };
    const auto notes = [&](const QString &datas) {
        return record(u"{\"ZVMemo\":{\"datas\":%1}}"_s.arg(datas))->mUpdateMsgDict();
    };
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
    }
}

TEST(Records, AreEmptyForReplyTextsThatAreNoObject)
{
    for (const Text &reply :
         {Text(), Text(utf8("")), Text(utf8("{")), Text(utf8("<html>")), Text(utf8("[1]")),
          Text(utf8("\"ok\"")), Text(utf8("{\"ok\":true} x"))}) {
        EXPECT_EQ(BaseResponse(reply).debugDescription(),
                  u"{\"id\":(null), \"ok\":false, \"msg\":(null)}");
        const auto response = CheckUpdateResponse::getFromJson(reply);
        ASSERT_TRUE(response);
        EXPECT_EQ(response->debugDescription(),
                  u"{\"ZVUpdateVersion\":(null), \"MD5\":(null) \"ok\":false, \"msg\":(null)}");
        EXPECT_FALSE(response->mUpdateMsgDict());
    }
}

TEST(CheckUpdateResponse, ReadsASealedReply)
{
    const QJsonObject sample = QJsonDocument::fromJson(testData("check-reply.json")).object();
    const QString reply = sample.value(u"reply").toString();
    const auto response = CheckUpdateResponse::getFromJson(reply);
    EXPECT_EQ(response->debugDescription(),
              u"{\"ZVUpdateVersion\":2103, \"MD5\":900150983CD24FB0D6963F7D28E17F72 \"ok\":true, "
              u"\"msg\":}");
    EXPECT_EQ(listed(response->mUpdateMsgDict().value()),
              "en=Faster start.;zh-CN=启动更快。;zh-TW=啟動更快。");

    auto refused = QJsonDocument::fromJson(reply.toUtf8()).object();
    refused[u"ok"] = false;
    refused[u"msg"] = utf8("m");
    const auto empty =
        CheckUpdateResponse::getFromJson(QString::fromUtf8(QJsonDocument(refused).toJson()));
    EXPECT_EQ(empty->debugDescription(),
              u"{\"ZVUpdateVersion\":(null), \"MD5\":(null) \"ok\":false, \"msg\":m}");
}

/// Cut off after each byte, and with each bit turned.
QByteArrayList damagedFormsOf(const QByteArray &bytes)
{
    QByteArrayList forms;
    for (qsizetype length = 0; length < bytes.size(); ++length)
        forms.append(bytes.left(length));
    for (qsizetype bit = 0; bit < 8 * bytes.size(); ++bit) {
        forms.append(bytes);
        forms.last()[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
    }
    return forms;
}

TEST(CheckUpdateResponse, MakesNoOtherOfferWhenItIsDamagedOnItsWay)
{
    const QString text =
        QJsonDocument::fromJson(testData("check-reply.json")).object().value(u"reply").toString();
    const auto whole = CheckUpdateResponse::getFromJson(text);
    for (const QByteArray &damaged : damagedFormsOf(text.toUtf8())) {
        const auto reply = CheckUpdateResponse::getFromJson(QString::fromUtf8(damaged));
        EXPECT_TRUE(damaged.size() == text.size() || !reply->ok());
        if (reply->ZVUpdateVersion() || reply->ZVMD5()) {
            EXPECT_EQ(reply->ZVUpdateVersion(), whole->ZVUpdateVersion()) << damaged.constData();
            EXPECT_EQ(reply->ZVMD5(), whole->ZVMD5()) << damaged.constData();
        }
    }
    // The sealed block by itself. It is enciphered as a whole, so all of it is needed.
    const auto block = HttpFunctionURLEncode::dataFromHexString(*BaseResponse(text).data());
    for (const QByteArray &damaged : damagedFormsOf(block)) {
        const auto reply = CheckUpdateResponse::getFromJson(
            u"{\"ok\":true,\"data\":\"%1\"}"_s.arg(QLatin1String(damaged.toHex())));
        EXPECT_TRUE(reply->ok());
        EXPECT_EQ(reply->ZVUpdateVersion(), std::nullopt);
    }
}

// Texts that readers of JSON disagree on: whether there is an offer, and of what version.
TEST(CheckUpdateResponse, IsReadFromOddTextsOrRefused)
{
    const QByteArray inner = R"("ZVUpdVersion":"2","ZVMD5":"0123")";
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
}

TEST(CheckUpdateResponse, IsOkAndEmptyWhenTheDataDoesNotUnseal)
{
    for (const char *data : {"", ",\"data\":\"12345678ABCDEF\"", ",\"data\":[]"}) {
        const auto response =
            CheckUpdateResponse::getFromJson(utf8("{\"ok\":1,\"msg\":\"m\"%1}").arg(utf8(data)));
        EXPECT_EQ(response->debugDescription(),
                  u"{\"ZVUpdateVersion\":(null), \"MD5\":(null) \"ok\":true, \"msg\":m}");
    }
    // The inner object has no say in whether the outer one is ok.
    const QString inner = HttpFunctionURLEncode::encode(utf8(R"({"ok":false,"msg":"inner"})"));
    const auto response =
        CheckUpdateResponse::getFromJson(utf8("{\"ok\":true,\"data\":\"%1\"}").arg(inner));
    EXPECT_TRUE(response->ok());
    EXPECT_EQ(response->msg(), std::nullopt);
}

TEST(CheckUpdateResponse, CollectsNotesByLanguage)
{
    const std::pair<const char *, const char *> cases[] = {
        {"[]", ""},
        // The last one of a language wins.
        {R"([{"memo":"a","language":"en"},{"memo":"b","language":"en"}])", "en=b"},
        {R"([{"memo":"\"a\"","language":"en"}])", "en=a"},
        {R"([{"memo":"\"a","language":"en"}])", "en=\"a"},
        {R"([{"memo":"\"\"","language":"en"}])", "en="},
        {R"([{"memo":"","language":""}])", "="},
        {R"([{"memo":12,"language":34}])", "34=12"},
        // Under a quoted code: as many characters of the notes, from the second one on, after the
        // notes have lost quotes of their own.
        {R"([{"memo":"notes","language":"\"en\""}])", "ot=notes"},
        {R"([{"memo":"\"notes\"","language":"\"en\""}])", "ot=notes"},
        {R"([{"memo":"no","language":"\"zh-TW\""}])", "o=no"},
        {R"([{"memo":"","language":"\"en\""}])", "="},
        {R"([{"memo":"notes","language":"\"\""}])", "=notes"},
        // Elements that are passed over.
        {R"([1,null,[],{"memo":"a"},{"language":"en"},{"memo":"\"","language":"en"},
             {"memo":"a","language":"\""},{"memo":null,"language":"en"}])",
         ""},
    };
    for (const auto &[datas, notes] : cases)
        EXPECT_EQ(listed(withNotes(datas).mUpdateMsgDict().value()), notes) << datas;
    for (const char *inner :
         {"{}", R"({"ZVMemo":1})", R"({"ZVMemo":{}})", R"({"ZVMemo":{"datas":{}}})"})
        EXPECT_FALSE(CheckUpdateResponse(utf8(inner)).mUpdateMsgDict()) << inner;
}

TEST(CheckUpdateResponse, FindsNotesByTheCodesOfTheMoment)
{
    const CheckUpdateResponse all = withNotes(
        R"([{"memo":"E","language":"en"},{"memo":"T","language":"zh-TW"},
            {"memo":"C","language":"zh-CN"},{"memo":"X","language":"x"}])");
    EXPECT_EQ(all.getUpdateMessageWithLang(utf8("zh-TW")), u"T");
    EXPECT_EQ(all.getUpdateMessageWithLang(utf8("zh-CN")), u"C");
    for (const char *code : {"en", "fr", "zh-Hant", "zh-tw", "", "x"})
        EXPECT_EQ(all.getUpdateMessageWithLang(utf8(code)), u"E") << code;
    EXPECT_EQ(all.getUpdateMessageWithLang(std::nullopt), std::nullopt);
    EXPECT_EQ(CheckUpdateResponse().getUpdateMessageWithLang(utf8("en")), std::nullopt);

    const CheckUpdateResponse english = withNotes(R"([{"memo":"E","language":"en"}])");
    EXPECT_EQ(english.getUpdateMessageWithLang(utf8("zh-TW")), std::nullopt);
    EXPECT_EQ(english.getUpdateMessageWithLang(utf8("fr")), u"E");

    const char *const traditional = std::exchange(kZVLanguageCode_zh_TW, "x");
    const char *const fallback = std::exchange(kZVLanguageCode_EN, "zh-CN");
    EXPECT_EQ(all.getUpdateMessageWithLang(utf8("x")), u"X");
    EXPECT_EQ(all.getUpdateMessageWithLang(utf8("zh-TW")), u"C");
    kZVLanguageCode_zh_TW = traditional;
    kZVLanguageCode_EN = fallback;
}

} // namespace
