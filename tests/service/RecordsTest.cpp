#include "service/BaseResponse.h"
#include "service/CheckUpdateResponse.h"
#include "service/DownloadRate.h"
#include "service/HttpFunctionURLEncode.h"
#include "service/LanguageCodes.h"
#include "service/UpdateLogicFunc.h"
#include "support/ScriptedServer.h"
#include "support/TestData.h"
#include "support/Testing.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>

#include <thread>

using namespace Qt::StringLiterals;

namespace {

using Text = std::optional<QString>;

constexpr auto utf8 = [](const char *text) { return QString::fromUtf8(text); };

/// The notes in the order of their languages, as "en=Hello;zh-TW=...".
QString listed(const CheckUpdateResponse::UpdateMessages &notes)
{
    QStringList list;
    for (auto note = notes.cbegin(); note != notes.cend(); ++note)
        list += note.key() + u'=' + note.value();
    list.sort();
    return list.join(u';');
}

CheckUpdateResponse withNotes(const QString &datas)
{
    return CheckUpdateResponse(u"{\"ZVMemo\":{\"datas\":%1}}"_s.arg(datas));
}

TEST(BaseResponse, ReadsTheTruthOfOk)
{
    for (const char *ok : {"true", "1", "-1", "0.5", "\"1\"", "\"yes\"", "\"Y\"", "\"true\"",
                           "\"T\"", "\" \\t+007\"", "\"-0y\"", "\"9x\""})
        EXPECT_TRUE(BaseResponse(utf8("{\"ok\":%1}").arg(utf8(ok))).ok()) << ok;
    for (const char *ok : {"0.0", "[1]", "\"false\"", "\"0\"", "\"no\"", "\"+-1\"", "\"x1\"",
                           "\" + 1\"", "\"-000\""})
        EXPECT_FALSE(BaseResponse(utf8("{\"ok\":%1}").arg(utf8(ok))).ok()) << ok;
}

/// What a field may hold, and how it is to be read as a text and as a truth.
struct Value
{
    QString json; ///< Empty for a field that is not there.
    Text text;
    bool truth;
};

QList<Value> values()
{
    QList<Value> list = {{{}, {}, false}, {uR"("\u0000")"_s, QString(QChar()), false}};
    for (const QStringList &row : testRows("service/data/fields.tsv", 3))
        list.append({row[0], row[1] == u"-" ? Text() : Text(row[1]), row[2] == u"true"});
    return list;
}

/// An object with one field of interest among others.
QString objectWith(const char *field, const Value &value, const QString &further = {})
{
    const QString start = u"{\"extra\":[1,{}]"_s + further;
    if (value.json.isEmpty())
        return start + u'}';
    return start + u",\"%1\":%2}"_s.arg(QLatin1String(field), value.json);
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
    for (const Value &value : values()) {
        SCOPED_TRACE(qPrintable(value.json));
        EXPECT_EQ(BaseResponse(objectWith("ok", value)).ok(), value.truth);
        EXPECT_EQ(CheckUpdateResponse::getFromJson(objectWith("ok", value))->ok(), value.truth);
        EXPECT_EQ(BaseResponse(objectWith("msg", value)).msg(), value.text);
        EXPECT_EQ(BaseResponse(objectWith("id", value)).ID(), value.text);
        EXPECT_EQ(BaseResponse(objectWith("data", value)).data(), value.text);

        EXPECT_EQ(record(objectWith("ZVUpdVersion", value))->ZVUpdateVersion(), value.text);
        EXPECT_EQ(record(objectWith("ZVMD5", value))->ZVMD5(), value.text);
        EXPECT_FALSE(record(objectWith("ZVMemo", value))->mUpdateMsgDict());
        const bool isList = value.json.startsWith(u'[');
        EXPECT_EQ(notes(value.json.isEmpty() ? u"null"_s : value.json).has_value(), isList);
        const qsizetype found = value.text ? 1 : 0;
        const QString memo = objectWith("memo", value, u",\"language\":\"en\""_s);
        EXPECT_EQ(notes(u'[' + memo + u']')->size(), found);
        const QString language = objectWith("language", value, u",\"memo\":\"x\""_s);
        EXPECT_EQ(notes(u'[' + language + u']')->size(), found);
    }
}

QString sampleReply()
{
    return QJsonDocument::fromJson(testData("service/data/check-reply.json"))
        .object()[u"reply"]
        .toString();
}

TEST(Records, HaveReadWhatTheyDescribe)
{
    const QString sample = sampleReply();
    const QString refused =
        QString(sample).replace(u"true, \"msg\": \"\""_s, u"false, \"msg\": \"m\""_s);
    const QString inner = HttpFunctionURLEncode::encode(u"{\"ok\":false,\"msg\":\"inner\"}"_s);
    const QString nothing = u"{\"ZVUpdateVersion\":(null), \"MD5\":(null) \"ok\":%1, \"msg\":%2}"_s;
    const QString junk = nothing.arg(u"false"_s, u"(null)"_s);
    const QString bare = nothing.arg(u"true"_s, u"m"_s);
    const std::pair<Text, QString> cases[] = {
        {sample,
         u"{\"ZVUpdateVersion\":2103, \"MD5\":900150983CD24FB0D6963F7D28E17F72 \"ok\":true, "
         "\"msg\":}"_s},
        {refused, nothing.arg(u"false"_s, u"m"_s)},
        // What does not unseal, and an inner object that has no say in whether the outer one is ok.
        {u"{\"ok\":1,\"msg\":\"m\"}"_s, bare},
        {u"{\"ok\":1,\"msg\":\"m\",\"data\":\"12345678ABCDEF\"}"_s, bare},
        {u"{\"ok\":1,\"msg\":\"m\",\"data\":[]}"_s, bare},
        {u"{\"ok\":true,\"data\":\"%1\"}"_s.arg(inner), nothing.arg(u"true"_s, u"(null)"_s)},
        {{}, junk},
        {u""_s, junk},
        {u"{"_s, junk},
        {u"<html>"_s, junk},
        {u"[1]"_s, junk},
        {u"\"ok\""_s, junk},
        {u"{\"ok\":true} x"_s, junk},
    };
    for (const auto &[reply, description] : cases) {
        const auto response = CheckUpdateResponse::getFromJson(reply);
        ASSERT_TRUE(response);
        EXPECT_EQ(response->debugDescription(), description);
        EXPECT_EQ(BaseResponse(reply).ok(), response->ok());
        EXPECT_EQ(response->mUpdateMsgDict().has_value(), reply == sample);
    }
    BaseResponse changed(u"{"_s);
    EXPECT_EQ(changed.debugDescription(), u"{\"id\":(null), \"ok\":false, \"msg\":(null)}");
    changed.setOk(true);
    changed.setMsg(u"m"_s);
    changed.setID(u"i"_s);
    changed.setData(u"d"_s);
    EXPECT_EQ(changed.debugDescription(), u"{\"id\":i, \"ok\":true, \"msg\":m}");
    EXPECT_EQ(changed.data(), u"d");
    EXPECT_EQ(listed(*CheckUpdateResponse::getFromJson(sample)->mUpdateMsgDict()),
              u"en=Faster start.;zh-CN=启动更快。;zh-TW=啟動更快。");
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
    const QString text = sampleReply();
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
        {"<p>", {}},
        {QByteArray("\xFF\xFE{\0}\0", 6), {}},
    };
    for (const auto &[text, version] : cases) {
        SCOPED_TRACE((text.left(60) + " ... " + text.right(60)).toStdString());
        const bool isPage = text == "<p>";
        const QByteArray type = isPage ? "Content-Type: text/html" : "Content-Type: text/plain";
        ScriptedServer server(ScriptedServer::Reply::whole(200, text, {type}));
        UpdateLogicFunc client;
        client.setMBaseURL(server.baseUrl());
        const auto found = client.doCheckUpdate(u"P"_s, u"1"_s);
        EXPECT_EQ(found->ok() ? found->ZVUpdateVersion() : std::nullopt, version);
        const auto failure = client.lastFailure();
        EXPECT_EQ(failure && failure->message.contains(u"web page"), isPage);
    }
    UpdateOutcome network(UpdateOutcome::Kind::NotAService);
    EXPECT_FALSE(network.mayBeLoginPage());
    network.httpStatus = UpdateOutcome::loginRequired;
    EXPECT_TRUE(network.mayBeLoginPage());
}

TEST(CheckUpdateResponse, AnnouncesWhatHasTheSignedSizeToo)
{
    CheckUpdateResponse response;
    response.setZVMD5(u"D41D8CD98F00B204E9800998ECF8427E"_s); // Of nothing.
    const QByteArray sha256 = QCryptographicHash::hash("", QCryptographicHash::Sha256);
    for (const quint64 size : {quint64(0), quint64(1)}) {
        response.setRelease(ReleaseStatement{.sha256 = sha256, .size = size});
        EXPECT_EQ(response.announces(u"no file"_s), size == 0);
    }
}

TEST(CheckUpdateResponse, CollectsNotesByLanguage)
{
    for (const QStringList &row : testRows("service/data/notes.tsv", 2))
        EXPECT_EQ(listed(*withNotes(row[0]).mUpdateMsgDict()), row[1] == u"-" ? u""_s : row[1])
            << qPrintable(row[0]);
    for (const char *inner :
         {"{}", R"({"ZVMemo":1})", R"({"ZVMemo":{}})", R"({"ZVMemo":{"datas":{}}})"})
        EXPECT_FALSE(CheckUpdateResponse(utf8(inner)).mUpdateMsgDict()) << inner;
}

TEST(CheckUpdateResponse, FindsNotesByTheCodesOfTheMoment)
{
    const CheckUpdateResponse all =
        withNotes(uR"([{"memo":"E","language":"en"},{"memo":"T","language":"zh-TW"},
             {"memo":"C","language":"zh-CN"},{"memo":"X","language":"x"}])"_s);
    EXPECT_EQ(all.getUpdateMessageWithLang(utf8("zh-TW")), u"T");
    EXPECT_EQ(all.getUpdateMessageWithLang(utf8("zh-CN")), u"C");
    for (const char *code : {"en", "fr", "zh-Hant", "zh-tw", "", "x"})
        EXPECT_EQ(all.getUpdateMessageWithLang(utf8(code)), u"E") << code;
    EXPECT_EQ(all.getUpdateMessageWithLang(std::nullopt), std::nullopt);
    EXPECT_EQ(CheckUpdateResponse().getUpdateMessageWithLang(utf8("en")), std::nullopt);

    const CheckUpdateResponse english = withNotes(uR"([{"memo":"E","language":"en"}])"_s);
    EXPECT_EQ(english.getUpdateMessageWithLang(utf8("zh-TW")), std::nullopt);
    EXPECT_EQ(english.getUpdateMessageWithLang(utf8("fr")), u"E");

    const char *const traditional = std::exchange(kZVLanguageCode_zh_TW, "x");
    const char *const fallback = std::exchange(kZVLanguageCode_EN, "zh-CN");
    EXPECT_EQ(all.getUpdateMessageWithLang(utf8("x")), u"X");
    EXPECT_EQ(all.getUpdateMessageWithLang(utf8("zh-TW")), u"C");
    kZVLanguageCode_zh_TW = traditional;
    kZVLanguageCode_EN = fallback;
}

TEST(DownloadRate, IsThatOfTheLastSecondOrTwo)
{
    using namespace std::chrono;
    const auto secondsSince = [](steady_clock::time_point start) {
        return duration<double>(steady_clock::now() - start).count();
    };
    DownloadRate rate;
    const auto beforeFirst = steady_clock::now();
    EXPECT_EQ(rate.perSecond(4'000'000), 0U) << "the first look";
    EXPECT_EQ(rate.perSecond(4'000'000), 0U) << "nothing has come";
    const auto afterSecond = steady_clock::now();
    std::this_thread::sleep_for(milliseconds(20));
    const double most = 1'000'000 / secondsSince(afterSecond);
    const auto found = static_cast<double>(rate.perSecond(5'000'000));
    EXPECT_LE(found, most);
    EXPECT_GT(found, 1'000'000 / secondsSince(beforeFirst) - 1);

    EXPECT_EQ(rate.perSecond(1'000'000), 0U) << "another download";
    for (const uint64_t come : {uint64_t(1'000'000), uint64_t(0)}) {
        std::this_thread::sleep_for(seconds(1));
        EXPECT_LE(rate.perSecond(2'000'000), come);
    }
}

TEST(DownloadRate, LeavesOutWhatWasHereBefore)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(u"A.bin"_s);
    writeFile(path, QByteArray(1'000'000, 'x'));
    const auto gate = std::make_shared<Gate>();
    ScriptedServer server(ScriptedServer::Reply().wait(gate).send(
        "HTTP/1.1 206 P\r\nContent-Length: 1000\r\n\r\n" + QByteArray(1000, 'x')));
    UpdateLogicFunc client;
    EXPECT_EQ(client.doGetDownloadProgress().bytesPerSecond, 0U);
    client.setMBaseURL(server.baseUrl());
    client.doStartDownload(u"T"_s, u"A.bin"_s, path);
    client.doGetDownloadProgress();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    gate->open();
    client.waitOne();
    UpdateLogicFunc other;
    other.setMDownload(client.mDownload());
    EXPECT_EQ(other.doGetDownloadProgress().received, 1'001'000U);
    const uint64_t rate = client.doGetDownloadProgress().bytesPerSecond;
    EXPECT_GT(rate, 0U);
    EXPECT_LE(rate, 1000 * 50U);
}

} // namespace
