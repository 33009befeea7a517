#include "service/UpdateLogicFunc.h"
#include "support/DownloadModes.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"
#include "support/Testing.h"

#include <QElapsedTimer>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Reply = ScriptedServer::Reply;
using Kind = UpdateOutcome::Kind;

namespace {

class Delegate : public UpdateLogicFuncDelegate
{
public:
    ~Delegate() override { retire(); }

    void downloadFinishWithFilePath(const QString &path) override
    {
        paths.append(path);
        thread = std::this_thread::get_id();
        if (onFinish)
            onFinish();
        ++finished;
    }

    // To be read when the download has ended, but for the last.
    QStringList paths;
    std::thread::id thread;
    std::function<void()> onFinish;
    std::atomic<int> finished = 0;
};

class Client : public testing::Test, public InBothModes
{
protected:
    void TearDown() override
    {
        client_.reset();
        EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
    }

    void start(const ScriptedServer &server, const QString &path)
    {
        client_->setMBaseURL(server.baseUrl());
        client_->setDelegate(&delegate_);
        EXPECT_EQ(client_->doStartDownload(QStringLiteral("T1"), QStringLiteral("A.exe"), path), 1);
    }

    QByteArray file() const { return readFile(path_); }

    const QTemporaryDir directory_;
    const QString path_ = directory_.filePath(QStringLiteral("A.bin"));
    Delegate delegate_; // Outlives the client, whose end waits for calls.
    std::shared_ptr<UpdateLogicFunc> client_ = std::make_shared<UpdateLogicFunc>();
};

INSTANTIATE_TEST_SUITE_P(, Client, bothModes, testing::PrintToStringParamName());

const QByteArray halfAFile = "HTTP/1.1 200 OK\r\nContent-Length: 20\r\n\r\n0123456789";

} // namespace

TEST(ClientSetup, TakesTheBaseUrlFromTheOverrideFileAsItIs)
{
    const QString documents = QDir::homePath() + QStringLiteral("/Documents");
    const QString path = documents + QStringLiteral("/ConsoleZVUpdate.mac");
    ASSERT_TRUE(QDir().mkpath(documents));
    const QString builtIn = UpdateLogicFunc().mBaseURL();
    EXPECT_TRUE(builtIn.startsWith(QLatin1String("http://")));
    EXPECT_TRUE(builtIn.endsWith(QLatin1String("/Update/ZVDLCtl.dll?dt=")));

    for (const auto &[content, url] : {std::pair(QByteArray(" http://127.0.0.1/?dt=\r\n"),
                                                 QStringLiteral(" http://127.0.0.1/?dt=\r\n")),
                                       {"", QString()},
                                       {"http://caf\xE9/?dt=", builtIn}}) {
        writeFile(path, content);
        EXPECT_EQ(UpdateLogicFunc().mBaseURL(), url) << content.data();
    }
    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(QDir().mkdir(path)) << "Something that exists and cannot be read.";
    EXPECT_EQ(UpdateLogicFunc().mBaseURL(), builtIn);
    ASSERT_TRUE(QDir().rmdir(path));
}

TEST_P(Client, SendsItsCommandsAsTheyAreOverOneConnection)
{
    // An error's page, most of which arrives first.
    auto page =
        Reply().send("HTTP/1.1 404 No\r\nContent-Length: 999\r\n\r\n" + QByteArray(998, 'x'));
    page.pause(std::chrono::milliseconds(100)).send("x");
    ScriptedServer server([&](const ScriptedServer::Request &request) {
        if (request.method == "GET")
            return page;
        return request.method == "POST" ? Reply::whole(200, R"({"ok":true,"id":"T&1","msg":"m"})")
                                        : Reply::whole(200, QByteArray(7, 'x'));
    });
    client_->setMBaseURL(server.baseUrl());
    EXPECT_EQ(client_->doCheckUpdate(QStringLiteral("A&B"), QStringLiteral("1.2"))->msg(), u"m");
    EXPECT_EQ(client_->doGetToken()->ID(), u"T&1");
    EXPECT_EQ(client_->doGetFileSize(QStringLiteral("T&1"), QStringLiteral("A&B_1.exe")), 7u);
    for (int i = 0; i < 2; ++i) {
        start(server, path_);
        client_->waitOne();
    }

    std::vector<std::string> exchanges;
    for (const ScriptedServer::Request &request : server.requests())
        exchanges.push_back(request.method.toStdString() + std::to_string(request.connection) +
                            ' ' + request.command().toStdString());
    EXPECT_THAT(exchanges, ElementsAre("POST1 cmd=checkupd&id=A&B&ver=1.2", "POST1 cmd=gettoken",
                                       "HEAD1 cmd=download&tk=T&1&fn=A&B_1.exe",
                                       "GET1 cmd=download&tk=T1&fn=A.exe",
                                       "GET1 cmd=download&tk=T1&fn=A.exe"));
}

TEST(ClientSetup, KnowsWhyACommandWasNotAnswered)
{
    const ScriptedServer target(Reply::whole(200, "page", {"Content-Type: text/html"}));
    const QString page = target.url(QStringLiteral("/login"));
    const ScriptedServer untrusted([](const auto &) { return Reply(); }, Certificate::Untrusted);
    const auto half = Reply().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf").close();
    const auto redirect = [](const QString &url) {
        return Reply::whole(302, "", {"Location: " + url.toLatin1(), "Content-Type: text/plain"});
    };
    const struct
    {
        Reply reply;
        std::optional<Kind> kind;
        int status = 0;
    } rows[] = {
        {Reply::whole(200, R"({"ok":true})"), std::nullopt},
        {Reply::whole(500, R"({"ok":true})"), std::nullopt},
        {Reply::whole(200, R"({"ok":false})"), Kind::NoToken, 200},
        {Reply::whole(200, "{}"), Kind::NotAService, 200},
        {Reply::whole(404, "page"), Kind::HttpStatus, 404},
        {Reply::whole(511, "page", {"Content-Type: text/html"}), Kind::NotAService, 511},
        {Reply::whole(407, "page"), Kind::ProxyRefused, 407},
        {half, Kind::BrokenOff, 200},
        {Reply().send("no HTTP\r\n\r\n").close(), Kind::NotAService},
        {Reply().close(), Kind::ServiceUnreachable},
        {redirect(QStringLiteral("http://127.0.0.1:1/")), Kind::ServiceUnreachable},
        {redirect(untrusted.baseUrl()), Kind::CertificateRefused},
        {redirect(page), Kind::NotAService, 200},
    };
    UpdateLogicFunc client;
    EXPECT_FALSE(client.lastFailure().has_value());
    std::optional<UpdateOutcome> failure;
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        const ScriptedServer server(row.reply);
        client.setMBaseURL(server.baseUrl());
        EXPECT_EQ(client.doGetToken()->ok(), !row.kind);
        failure = client.lastFailure();
        EXPECT_EQ(failure ? std::optional(failure->kind) : std::nullopt, row.kind);
        EXPECT_EQ(failure ? failure->httpStatus : 0, row.status);
        EXPECT_TRUE(!failure || !failure->message.isEmpty());
    }
    EXPECT_EQ(failure->contentType, QStringLiteral("text/html"));
    EXPECT_EQ(failure->finalUrl, page);
}

TEST(ClientSetup, WithoutADownloadHasNothingToStop)
{
    UpdateLogicFunc client;
    EXPECT_TRUE(client.doCheckDownloadStop());
    EXPECT_EQ(client.doStopDownload(), 1);
    client.releaseDownload();
    client.waitOne();
    EXPECT_EQ(client.mDownload(), nullptr);
}

TEST_P(Client, TellsItsDelegateOfAFile)
{
    const LogCapture log;
    ScriptedServer server(Reply::whole(206, "new"));
    writeFile(path_, "old+");
    delegate_.onFinish = [this] {
        EXPECT_FALSE(UpdateLogicFunc::isStopRequestedHere());
        client_->doStopDownload();
        EXPECT_TRUE(UpdateLogicFunc::isStopRequestedHere());
        EXPECT_EQ(client_->doCheckDownloadStop(), GetParam() == DownloadMode::Connection);
    };
    start(server, path_);
    client_->waitOne();

    EXPECT_TRUE(client_->doCheckDownloadStop());
    EXPECT_THAT(delegate_.paths, ElementsAre(path_));
    EXPECT_EQ(delegate_.thread == std::this_thread::get_id(),
              GetParam() == DownloadMode::Connection);
    EXPECT_EQ(file(), "old+new");
    const UpdateDownloadProgress progress = client_->doGetDownloadProgress();
    EXPECT_EQ(progress.received, 7u);
    EXPECT_EQ(progress.resumedAt, 4u);
    EXPECT_EQ(progress.total, 7u);
    EXPECT_EQ(progress.failure, std::nullopt);
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_P(Client, WaitsForAsManyStepsAsADownloadTakes)
{
    const auto gate = std::make_shared<Gate>();
    ScriptedServer server(Reply().send(halfAFile).wait(gate).send("abcdefghij"));
    start(server, path_);
    std::thread later([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(600)); // A step takes 500.
        gate->open();
    });
    client_->waitOne();
    EXPECT_TRUE(client_->doCheckDownloadStop());
    later.join();
    EXPECT_EQ(file(), "0123456789abcdefghij");
}

TEST_P(Client, OnlyLogsAFailure)
{
    const LogCapture log;
    ScriptedServer server(Reply::whole(404, QByteArray(600'000, 'x')));
    EXPECT_EQ(client_->doGetDownloadProgress().bytesPerSecond, 0U);
    start(server, path_);
    client_->waitOne();
    EXPECT_EQ(client_->doGetDownloadProgress().total, std::nullopt) << "That is the page's.";

    EXPECT_THAT(log.lines(),
                ElementsAre(QStringLiteral(
                    "download Finish Error: Error Domain=HTTP Error Code=404 \"(null)\"")));
    EXPECT_THAT(delegate_.paths, IsEmpty());
    EXPECT_EQ(client_->lastFailure()->kind, Kind::HttpStatus);
    EXPECT_EQ(client_->doGetDownloadProgress().failure,
              QStringLiteral("The server answered with HTTP status 404."));

    server.setHandler([](const auto &) {
        return Reply()
            .send("HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775807\r\n\r\nnew")
            .close();
    });
    ASSERT_TRUE(QDir().mkdir(path_));
    start(server, path_);
    client_->waitOne();
    EXPECT_EQ(client_->doGetDownloadProgress().total, 9223372036854775807u);
    EXPECT_THAT(log.lines().last().toStdString(), HasSubstr("directory")) << "not just a status";
    EXPECT_EQ(server.requests().back().connection, 2)
        << "The endless page was not read to its end.";
}

// Of its own download or of one that has been replaced.
TEST_P(Client, MayGoInTheMiddleOfItsDelegatesCall)
{
    const QString other = directory_.filePath(QStringLiteral("B.bin"));
    delegate_.onFinish = [this] { client_.reset(); };
    for (const bool isReplaced : {false, true}) {
        const auto gate = std::make_shared<Gate>();
        ScriptedServer first(Reply().send(halfAFile).wait(gate).send("abcdefghij"));
        ScriptedServer second(Reply().send(halfAFile).wait(std::make_shared<Gate>()));
        QFile::remove(path_);
        client_ = std::make_shared<UpdateLogicFunc>();
        delegate_.finished = 0;
        start(first, path_);
        ASSERT_TRUE(waitFor([this] { return file() == "0123456789"; }));
        if (isReplaced) {
            start(second, other);
            ASSERT_TRUE(waitFor([&] { return readFile(other) == "0123456789"; }));
        }
        gate->open();
        ASSERT_TRUE(waitFor([this] { return delegate_.finished == 1; }));
        EXPECT_EQ(client_, nullptr);
        EXPECT_EQ(file(), "0123456789abcdefghij");
        EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
    }
    EXPECT_EQ(readFile(other), "0123456789");
}

// Before its transfer has begun, and in the middle of it on a thread without an event loop.
TEST_P(Client, StopsItsDownloadWhenItGoes)
{
    for (const bool hasBegun : {false, true}) {
        ScriptedServer server(Reply().send(halfAFile).wait(std::make_shared<Gate>()));
        client_ = std::make_shared<UpdateLogicFunc>();
        start(server, path_);
        ASSERT_TRUE(!hasBegun || waitFor([this] { return file() == "0123456789"; }));
        QElapsedTimer timer;
        timer.start();
        if (hasBegun)
            std::thread([this] { client_.reset(); }).join();
        else
            client_.reset();
        EXPECT_LT(timer.elapsed(), 15000) << "while the server keeps silent";
        QFile::remove(path_);
    }
    EXPECT_THAT(delegate_.paths, IsEmpty());
}
