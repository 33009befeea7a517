#include "TestData.h"
#include "service/BaseResponse.h"
#include "service/CheckUpdateResponse.h"
#include "service/HttpFunctionURLEncode.h"
#include "service/LanguageCodes.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>

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

TEST(BaseResponse, ReadsTextsAndTheDigitsOfNumbers)
{
    const BaseResponse texts(utf8(R"({"ok":true,"msg":"x","id":"T1","extra":1})"));
    EXPECT_TRUE(texts.ok());
    EXPECT_EQ(texts.msg(), u"x");
    EXPECT_EQ(texts.ID(), u"T1");
    EXPECT_EQ(texts.data(), std::nullopt);
    EXPECT_EQ(texts.debugDescription(), u"{\"id\":T1, \"ok\":true, \"msg\":x}");

    const BaseResponse numbers(utf8(R"({"msg":2.1,"id":9007199254740993,"data":-7})"));
    EXPECT_EQ(numbers.msg(), u"2.1");
    EXPECT_EQ(numbers.ID(), u"9007199254740993");
    EXPECT_EQ(numbers.data(), u"-7");

    const BaseResponse others(utf8(R"({"msg":null,"id":true,"data":["x"]})"));
    EXPECT_EQ(others.msg(), std::nullopt);
    EXPECT_EQ(others.ID(), std::nullopt);
    EXPECT_EQ(others.data(), std::nullopt);
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
