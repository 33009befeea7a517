#include "RunningService.h"

#include "support/SigningKey.h"
#include "support/TestData.h"
#include "zvupdate/Tool.h"

#include <ZVUpdate/service/BaseResponse.h>
#include <ZVUpdate/service/CheckUpdateResponse.h>
#include <ZVUpdate/transport/ZVMisc.h>

#include <QCryptographicHash>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 hugeSize = (qint64(4) << 30) + 3;

QString md5(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex());
}

class ServiceTest : public testing::Test
{
protected:
    void SetUp() override
    {
        for (int i = 0; i < 100'000; ++i)
            installer_.append(char(i % 251));
        writeFile(service_.served(u"files/new.bin"_s), installer_);
        QFile huge(service_.served(u"files/huge.bin"_s));
        ASSERT_TRUE(huge.open(QIODevice::WriteOnly));
        ASSERT_TRUE(huge.seek(hugeSize - 3) && huge.write("end") == 3);
        writeFile(service_.served(u"releases.json"_s), R"({"products": [
            {"id": "P&ver=1", "releases": [
              {"version": "2103", "installer": "files/new.bin",
               "notes": {"en": "Faster.", "zh-TW": "更快。"}},
              {"version": "99", "installer": "files/new.bin"}]},
            {"id": "Huge", "releases": [{"version": "1", "installer": "files/huge.bin"}]}]})");
    }

    CheckUpdateResponse check(const QString &id, const QString &version)
    {
        const auto response =
            service_.request("POST", u"cmd=checkupd&id=%1&ver=%2"_s.arg(id, version));
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.headers.value("content-type"), "application/json");
        return *CheckUpdateResponse::getFromJson(QString::fromUtf8(response.body));
    }

    void expectNoStart(const QStringList &options, const QByteArray &reason)
    {
        EXPECT_FALSE(service_.start(options));
        EXPECT_EQ(service_.exitCode(), 1);
        EXPECT_TRUE(service_.standardError().contains(reason))
            << service_.standardError().toStdString();
    }

    RunningService service_;
    QByteArray installer_;
};

} // namespace

TEST_F(ServiceTest, AnnouncesTheNewestReleaseToOlderClientsOnly)
{
    ASSERT_TRUE(service_.start());
    for (const QString &version : {u"2100"_s, u"99"_s, u"2102.9"_s, QString()}) {
        const auto found = check(u"P&ver=1"_s, version);
        EXPECT_TRUE(found.ok());
        EXPECT_EQ(found.ZVUpdateVersion(), u"2103"_s);
        EXPECT_EQ(found.ZVMD5(), md5(installer_));
        EXPECT_EQ(found.getUpdateMessageWithLang(u"zh-TW"_s), u"更快。"_s);
        EXPECT_EQ(found.getUpdateMessageWithLang(u"en"_s), u"Faster."_s);
    }
    for (const QString &version : {u"2103"_s, u"2103.0"_s, u"10000"_s}) {
        const auto none = check(u"P&ver=1"_s, version);
        EXPECT_FALSE(none.ok());
        EXPECT_TRUE(none.msg()->contains(u"no newer version"_s)) << none.msg()->toStdString();
    }
    EXPECT_TRUE(check(u"P"_s, u"1"_s).msg()->contains(u"unknown product"_s));
}

TEST_F(ServiceTest, RefusesWhatIsNoCommand)
{
    ASSERT_TRUE(service_.start());
    for (const QString &command : {u"cmd=none"_s, u"cmd=checkupd&id=P"_s, u"x"_s, u"CMD=gettoken"_s,
                                   u"cmd=download&tk=1"_s}) {
        const auto response = service_.request("POST", command);
        const BaseResponse reply(QString::fromUtf8(response.body));
        EXPECT_EQ(response.status, 200) << command.toStdString();
        EXPECT_FALSE(reply.ok());
        EXPECT_TRUE(reply.msg()->contains(u"bad command"_s)) << command.toStdString();
        EXPECT_EQ(service_.request("GET", command).status, 400);
    }
    for (const char *sealed : {"", "00", "zz", "7D4470DA8E2DCE6836729BBA61EC3DBC"})
        EXPECT_TRUE(service_.requestRaw("POST", RunningService::path + QByteArray(sealed))
                        .body.contains("bad command"));
    EXPECT_EQ(service_.requestRaw("POST", "/update/ZVDLCtl.dll?dt=").status, 404);
    EXPECT_EQ(service_.request("DELETE", u"cmd=gettoken"_s).status, 405);
}

TEST_F(ServiceTest, SendsFilesWholeAndInParts)
{
    ASSERT_TRUE(service_.start());
    const QString command = service_.download(u"P&ver=1_2103.exe"_s);
    const auto whole = service_.request("GET", command);
    EXPECT_EQ(whole.status, 200);
    EXPECT_EQ(whole.body, installer_);
    EXPECT_EQ(whole.headers.value("accept-ranges"), "bytes");
    EXPECT_EQ(service_.request("GET", command, "bytes=0-0,5-5").body, installer_);

    const auto head = service_.request("HEAD", command);
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.headers.value("content-length"), "100000");
    EXPECT_TRUE(head.body.isEmpty());

    const auto rest = service_.request("GET", command, "bytes=99990-");
    EXPECT_EQ(rest.status, 206);
    EXPECT_EQ(rest.headers.value("content-range"), "bytes 99990-99999/100000");
    EXPECT_EQ(rest.body, installer_.last(10));
    EXPECT_EQ(service_.request("GET", command, "bytes=5-7").body, installer_.mid(5, 3));

    const auto past = service_.request("GET", command, "bytes=100000-");
    EXPECT_EQ(past.status, 416);
    EXPECT_EQ(past.headers.value("content-range"), "bytes */100000");
}

TEST_F(ServiceTest, SendsFilesPastFourGigabytes)
{
    ASSERT_TRUE(service_.start());
    const QString command = service_.download(u"Huge_1.exe"_s);
    EXPECT_EQ(service_.request("HEAD", command).headers.value("content-length"),
              QByteArray::number(hugeSize));
    const auto end =
        service_.request("GET", command, "bytes=" + QByteArray::number(hugeSize - 4) + '-');
    EXPECT_EQ(end.status, 206);
    EXPECT_EQ(end.body, QByteArray("\0end", 4));
    EXPECT_EQ(check(u"Huge"_s, u"0"_s).ZVMD5(),
              ZVMisc::getFileMD5(service_.served(u"files/huge.bin"_s)));
}

TEST_F(ServiceTest, WantsAGoodTokenAndAFileThatExists)
{
    ASSERT_TRUE(service_.start({u"--token-lifetime"_s, u"1"_s}));
    EXPECT_EQ(service_.request("GET", u"cmd=download&tk=T1&fn=P&ver=1_2103.exe"_s).status, 403);
    EXPECT_EQ(service_.request("HEAD", service_.download(u"P&ver=1_2104.exe"_s)).status, 404);
    EXPECT_EQ(service_.request("GET", service_.download(u"files/new.bin"_s)).status, 404);
    const QString command = service_.download(u"P&ver=1_2103.exe"_s);
    EXPECT_TRUE(waitFor([&] { return service_.request("HEAD", command).status == 403; }));
    EXPECT_EQ(service_.request("HEAD", service_.download(u"P&ver=1_2103.exe"_s)).status, 200);
}

TEST_F(ServiceTest, ServesNothingThatHasTakenAFilesPlace)
{
    ASSERT_TRUE(service_.start());
    const QString command = service_.download(u"P&ver=1_2103.exe"_s);
    const QString other = service_.served(u"../private"_s);
    writeFile(other, "private");
    const auto replace = [this](const QString &name) {
        QFile::remove(service_.served(name));
        return QFile::encodeName(service_.served(name)).toStdString();
    };
    ASSERT_EQ(symlink(QFile::encodeName(other).constData(), replace(u"files/new.bin"_s).c_str()),
              0);
    EXPECT_EQ(service_.request("GET", command).status, 404);
    ASSERT_EQ(mkfifo(replace(u"files/new.bin"_s).c_str(), 0600), 0);
    EXPECT_EQ(service_.request("GET", command).status, 404);
    ASSERT_EQ(mkfifo(replace(u"releases.json"_s).c_str(), 0600), 0);
    EXPECT_EQ(service_.request("GET", command).status, 404);
    // A folder above the file counts, too.
    QDir root(service_.served({}));
    ASSERT_TRUE(root.rename(u"files"_s, u"before"_s) && root.mkpath(u"elsewhere"_s));
    writeFile(root.filePath(u"elsewhere/new.bin"_s), "private");
    ASSERT_TRUE(QFile::link(root.filePath(u"elsewhere"_s), root.filePath(u"files"_s)));
    EXPECT_EQ(service_.request("GET", command).status, 404);
}

TEST_F(ServiceTest, NoticesChangesInTheFolder)
{
    ASSERT_TRUE(service_.start());
    EXPECT_EQ(check(u"P&ver=1"_s, u"1"_s).ZVMD5(), md5(installer_));
    writeFile(service_.served(u"files/new.bin"_s), "rebuilt");
    EXPECT_EQ(check(u"P&ver=1"_s, u"1"_s).ZVMD5(), md5("rebuilt"));

    writeFile(service_.served(u"releases.json"_s), "{\n\n!");
    EXPECT_EQ(check(u"P&ver=1"_s, u"1"_s).ZVUpdateVersion(), u"2103"_s);
    EXPECT_TRUE(waitFor([&] { return service_.standardError().contains("releases.json:3:"); }));

    writeFile(service_.served(u"releases.json"_s), R"({"products": [{"id": "P2",
        "releases": [{"version": "7", "installer": "files/new.bin"}]}]})");
    EXPECT_TRUE(waitFor([&] { return check(u"P2"_s, u"6"_s).ZVUpdateVersion() == u"7"_s; }));
    EXPECT_FALSE(check(u"P&ver=1"_s, u"1"_s).ok());
}

TEST_F(ServiceTest, OffersWhatIsSignedAsItIs)
{
    const SigningKey key;
    const auto stating = [](const QByteArray &fields) {
        // Spaces that no program of ours writes.
        return R"({ "ZVUpdVersion": "2", "ZVMD5": ")" + md5("rebuilt").toLatin1() +
               R"(", "ZVSigned": { "type": "zvupdate-release-1", "product": "P1", )" + fields +
               "}}";
    };
    const QByteArray sha256 =
        QCryptographicHash::hash("rebuilt", QCryptographicHash::Sha256).toHex();
    const QByteArray right = R"("size": 7, "sha256": ")" + sha256 + '"';
    const QByteArray statement = stating(right);
    const auto catalogue = [&key](const QByteArray &signature) {
        return R"({"products": [{"id": "P1", "releases": [
            {"version": "2", "installer": "files/signed.bin", "statement": "files/statement",
             "signatures": [")" +
               signature + R"("]}, {"version": "1", "installer": "files/new.bin"}],
            "withdrawn": [{"version": "1.5", "releaseKeys": [")" +
               key.line() + R"("]}]}]})";
    };
    writeFile(service_.served(u"files/signed.bin"_s), "rebuilt");
    writeFile(service_.served(u"files/statement"_s), statement);
    writeFile(service_.served(u"releases.json"_s), catalogue(key.signature(statement)));
    ASSERT_TRUE(service_.start());
    const auto reply = check(u"P1"_s, u"1"_s);
    EXPECT_EQ(reply.statement(), statement);
    EXPECT_EQ(reply.signatures(), QStringList(QString::fromLatin1(key.signature(statement))));
    const QString installer = service_.download(u"P1_2.exe"_s);
    EXPECT_EQ(service_.request("GET", installer).body, "rebuilt");

    // A running service stops offering what expires.
    const auto state = [&](const QByteArray &fields) {
        const QByteArray stated = stating(fields);
        writeFile(service_.served(u"files/statement"_s), stated);
        writeFile(service_.served(u"releases.json"_s), catalogue(key.signature(stated)));
    };
    const auto isOffered = [&] { return check(u"P1"_s, u"1"_s).ok(); };
    // Tried again where the machine is too busy to see it offered in time.
    ASSERT_TRUE(waitFor([&] {
        const auto end = QDateTime::currentDateTimeUtc().addSecs(2).toString(Qt::ISODate);
        state(right + R"(, "expires": ")" + end.toLatin1() + '"');
        return isOffered();
    }));
    EXPECT_TRUE(waitFor([&] { return !isOffered(); }));

    // Neither another file under a signed name is offered, by whichever of what is stated it
    // differs, nor one that is not signed as withdrawn builds demand it. The rest goes on.
    const auto makesOffered = [&](const QByteArray &fields, bool wanted) {
        return waitFor([&] { // The clock may have stood still since the last writing.
            state(fields);
            return isOffered() == wanted;
        });
    };
    for (const QByteArray &wrong : {R"("size": 7, "sha256": ")" + QByteArray(64, '0') + '"',
                                    R"("size": 8, "sha256": ")" + sha256 + '"'}) {
        EXPECT_TRUE(makesOffered(right, true));
        EXPECT_TRUE(makesOffered(wrong, false)) << wrong.toStdString();
    }
    EXPECT_TRUE(makesOffered(right, true));
    writeFile(service_.served(u"files/signed.bin"_s), "forged.");
    EXPECT_EQ(check(u"P1"_s, u"0"_s).ZVUpdateVersion(), u"1"_s);
    EXPECT_EQ(service_.request("GET", service_.download(u"P1_2.exe"_s)).status, 404);
    EXPECT_TRUE(waitFor([&] {
        return service_.standardError().contains("is not the file that the maker has signed");
    }));
    service_.stop();
    writeFile(service_.served(u"files/statement"_s), statement);
    writeFile(service_.served(u"releases.json"_s), catalogue(SigningKey('o').signature(statement)));
    ASSERT_TRUE(service_.start());
    EXPECT_EQ(check(u"P1"_s, u"0"_s).ZVUpdateVersion(), u"1"_s);
    EXPECT_EQ(service_.request("GET", service_.download(u"P1_2.exe"_s)).status, 404);
    EXPECT_TRUE(service_.standardError().contains("P1 2 is not offered: version 1.5 would refuse"));
    service_.stop();
    writeFile(service_.served(u"files/signed.bin"_s), "rebuilt");
    ASSERT_TRUE(service_.start({u"--allow-unsigned"_s}));
    EXPECT_EQ(check(u"P1"_s, u"1"_s).ZVUpdateVersion(), u"2"_s);
}

TEST_F(ServiceTest, InterruptsDownloadsOnPurpose)
{
    const struct
    {
        const char *fault;
        const char *range;
        int status; ///< 0 when the reply breaks off.
        QByteArray body;
        const char *logged;
    } cases[] = {
        {"cut", "", 0, installer_.first(50'000), "200 100000 (fault: cut=50000) broken off\n"},
        {"cut=1000", "bytes=400-", 0, installer_.mid(400, 600),
         "206 99600 (400-99999/100000; fault: cut=1000) broken off\n"},
        {"cut=1000", "bytes=1000-", 206, installer_.mid(1000), "206 99000 (1000-99999/100000)\n"},
        {"cut=100000", "", 200, installer_, "200 100000\n"},
        {"cut=0", "bytes=1000-", 0, {}, "fault: cut=0) broken off\n"},
        {"stall=1000", "", 0, installer_.first(1000), "(fault: stall=1000) broken off\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.fault) + ' ' + c.range);
        ASSERT_TRUE(service_.start({u"--fault"_s, QString::fromLatin1(c.fault)}));
        const bool isStall = c.fault[0] == 's';
        const QString command = service_.download(u"P&ver=1_2103.exe"_s);
        // A busy machine may need another try before the bytes have come in time.
        EXPECT_TRUE(waitFor([&] {
            const auto response = service_.request("GET", command, c.range, isStall ? 1 : 60);
            return response.status == c.status && response.timedOut == isStall &&
                   response.body == c.body;
        }));
        EXPECT_TRUE(waitFor([&] { return service_.standardError().contains(c.logged); }))
            << service_.standardError().toStdString();
        EXPECT_EQ(service_.request("HEAD", command).headers.value("content-length"), "100000");
        EXPECT_EQ(service_.stop(), 0);
    }
}

TEST_F(ServiceTest, AnnouncesAWrongDigestOnPurpose)
{
    ASSERT_TRUE(service_.start({u"--fault"_s, u"wrong-digest"_s}));
    const QString announced = check(u"P&ver=1"_s, u"1"_s).ZVMD5().value_or(QString());
    EXPECT_EQ(announced.size(), 32);
    EXPECT_NE(announced, md5(installer_));
    EXPECT_TRUE(waitFor([&] { return service_.standardError().contains("fault: wrong-digest"); }));
}

TEST_F(ServiceTest, LogsEveryExchangeOnOneLine)
{
    ASSERT_TRUE(service_.start());
    check(u"a\n\"b"_s, u"1"_s);
    service_.request("GET", service_.download(u"P&ver=1_2103.exe"_s), "bytes=10-19");
    EXPECT_EQ(service_.stop(), 0);
    const QByteArray log = service_.standardError();
    EXPECT_EQ(log.count('\n'), 3) << log.toStdString();
    for (const char *part :
         {" POST \"cmd=checkupd&id=a\\u000a\\\"b&ver=1\" 200 ", " POST \"cmd=gettoken\" 200 ",
          "&fn=P&ver=1_2103.exe\" 206 10 (10-19/100000)\n"})
        EXPECT_TRUE(log.contains(part)) << log.toStdString();
}

TEST_F(ServiceTest, PointsClientsHereUntilItEndsUnlessTheyArePointedElsewhere)
{
    const QStringList options{u"--write-override"_s};
    const QByteArray elsewhere = "http://elsewhere.invalid/?dt=";
    ASSERT_TRUE(service_.start(options));
    EXPECT_EQ(readFile(service_.overrideFile()), service_.baseUrl());
    EXPECT_EQ(service_.stop(), 0);
    EXPECT_FALSE(QFile::exists(service_.overrideFile()));

    ASSERT_TRUE(service_.start(options));
    writeFile(service_.overrideFile(), elsewhere);
    EXPECT_EQ(service_.stop(), 0);
    EXPECT_EQ(readFile(service_.overrideFile()), elsewhere);
    expectNoStart(options, "ConsoleZVUpdate.mac exists");
    EXPECT_EQ(readFile(service_.overrideFile()), elsewhere);

    QFile::remove(service_.overrideFile());
    ASSERT_EQ(mkfifo(QFile::encodeName(service_.overrideFile()).constData(), 0600), 0);
    expectNoStart(options, "is no file that can be read");
}

TEST_F(ServiceTest, SaysWhyItCannotStart)
{
    for (const QStringList &row : testRows("zvupdate-service/wrong-arguments.tsv", 2))
        Tool::expectRefusal(row[0].split(u' ', Qt::SkipEmptyParts), row[1]);

    RunningService other;
    writeFile(other.served(u"releases.json"_s), "{\"products\": []}");
    ASSERT_TRUE(other.start());
    const QString port = QString::number(other.port());
    expectNoStart({u"--port"_s, port}, "cannot listen on 127.0.0.1:" + port.toLatin1());
    writeFile(service_.served(u"releases.json"_s), "{\"products\": [\n{\"id\": 5}]}");
    expectNoStart({}, "releases.json: products[0].id: ");
}
