#include "service/UpdateLogicFunc.h"
#include "support/DownloadModes.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"
#include "support/TestFiles.h"
#include "support/WaitFor.h"

#include <QDir>
#include <QTemporaryDir>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using Reply = ScriptedServer::Reply;
using Kind = UpdateOutcome::Kind;

namespace {

std::optional<Kind> failureOf(const UpdateLogicFunc &client)
{
    const auto failure = client.lastFailure();
    EXPECT_TRUE(failure.has_value());
    return failure ? std::optional(failure->kind) : std::nullopt;
}

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

class Client : public testing::TestWithParam<DownloadMode>
{
protected:
    void TearDown() override
    {
        client_.reset();
        EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
    }

    void start(const ScriptedServer &server) { start(server, path_); }

    void start(const ScriptedServer &server, const QString &path)
    {
        if (!client_)
            client_ = std::make_shared<UpdateLogicFunc>();
        client_->setMBaseURL(server.baseUrl());
        client_->setDelegate(&delegate_);
        EXPECT_EQ(client_->doStartDownload(QStringLiteral("T1"), QStringLiteral("A.exe"), path), 1);
    }

    QByteArray file() const { return readFile(path_); }

    const DownloadModeSwitch switch_{GetParam()};
    const QTemporaryDir directory_;
    const QString path_ = directory_.filePath(QStringLiteral("A.bin"));
    Delegate delegate_; // Outlives the client, whose end waits for calls.
    std::shared_ptr<UpdateLogicFunc> client_;
};

INSTANTIATE_TEST_SUITE_P(, Client, testing::Values(DownloadMode::Session, DownloadMode::Connection),
                         testing::PrintToStringParamName());

Reply silentAfter(const QByteArray &beginning)
{
    return Reply().send(beginning).wait(std::make_shared<Gate>());
}

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

    const struct
    {
        QByteArray content;
        QString url;
    } rows[] = {
        {"http://127.0.0.1/?dt=", QStringLiteral("http://127.0.0.1/?dt=")},
        {" http://127.0.0.1/?dt=\r\n", QStringLiteral(" http://127.0.0.1/?dt=\r\n")},
        {"", QString()},
        {QByteArrayLiteral("\xFF\xFEh\0\n\0"), QStringLiteral("h\n")},
        {"http://caf\xE9/?dt=", builtIn},
    };
    for (const auto &row : rows) {
        writeFile(path, row.content);
        EXPECT_EQ(UpdateLogicFunc().mBaseURL(), row.url) << row.content.data();
    }
    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(QDir().mkdir(path)) << "Something that exists and cannot be read.";
    EXPECT_EQ(UpdateLogicFunc().mBaseURL(), builtIn);
    ASSERT_TRUE(QDir().rmdir(path));
}

TEST(ClientSetup, SendsItsCommandsWithTheirArgumentsAsTheyAre)
{
    ScriptedServer server([](const ScriptedServer::Request &request) {
        return request.method == "HEAD" ? Reply::whole(200, QByteArray(7, 'x'))
                                        : Reply::whole(200, R"({"ok":true,"id":"T&1","msg":"m"})");
    });
    UpdateLogicFunc client;
    client.setMBaseURL(server.baseUrl());
    EXPECT_EQ(client.doCheckUpdate(QStringLiteral("A&B"), QStringLiteral("1.2"))->msg(),
              QStringLiteral("m"));
    EXPECT_EQ(client.doGetToken()->ID(), QStringLiteral("T&1"));
    EXPECT_EQ(client.doGetFileSize(QStringLiteral("T&1"), QStringLiteral("A&B_1.exe")), 7u);

    QStringList exchanges;
    for (const ScriptedServer::Request &request : server.requests())
        exchanges += QString::fromLatin1(request.method) + u' ' + request.command();
    EXPECT_THAT(exchanges, ElementsAre(QStringLiteral("POST cmd=checkupd&id=A&B&ver=1.2"),
                                       QStringLiteral("POST cmd=gettoken"),
                                       QStringLiteral("HEAD cmd=download&tk=T&1&fn=A&B_1.exe")));
}

TEST(ClientSetup, WithoutAServerAnswersWithRecordsThatAreNotOk)
{
    const LogCapture log;
    UpdateLogicFunc client;
    client.setMBaseURL(QStringLiteral("http://127.0.0.1:1/?dt="));
    EXPECT_FALSE(client.lastFailure().has_value());
    EXPECT_FALSE(client.doCheckUpdate(QStringLiteral("A"), QStringLiteral("1"))->ok());
    EXPECT_EQ(failureOf(client), Kind::ServiceUnreachable);
    EXPECT_FALSE(client.doGetToken()->ok());
    EXPECT_EQ(failureOf(client), Kind::ServiceUnreachable);
    EXPECT_EQ(client.doGetFileSize(QStringLiteral("T1"), QStringLiteral("A_1.exe")), 0u);
    EXPECT_EQ(failureOf(client), Kind::ServiceUnreachable);
    EXPECT_EQ(log.lines().size(), 2);
}

TEST(ClientSetup, KnowsWhyACommandWasNotAnswered)
{
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
        {Reply::whole(407, "page"), Kind::ProxyRefused, 407},
        {Reply().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf").close(), Kind::BrokenOff,
         200},
        {Reply().send("no HTTP\r\n\r\n").close(), Kind::NotAService},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        ScriptedServer server(row.reply);
        UpdateLogicFunc client;
        client.setMBaseURL(server.baseUrl());
        client.doGetToken();
        const auto failure = client.lastFailure();
        EXPECT_EQ(failure ? std::optional(failure->kind) : std::nullopt, row.kind);
        EXPECT_EQ(failure ? failure->httpStatus : 0, row.status);
        EXPECT_TRUE(!failure || !failure->message.isEmpty());
    }
}

TEST(ClientSetup, KeepsWhereAReplyThatIsNoServicesCameFrom)
{
    for (const QString &type : {QStringLiteral("text/html"), QString()}) {
        ScriptedServer server([&](const ScriptedServer::Request &request) {
            const QByteArray field = "Content-Type: " + type.toLatin1();
            return request.target == "/login"
                       ? Reply::whole(200, "page", {type.isEmpty() ? "X: y" : field})
                       : Reply::whole(302, "", {"Location: /login", "Content-Type: text/plain"});
        });
        UpdateLogicFunc client;
        client.setMBaseURL(server.baseUrl());
        client.doCheckUpdate(QStringLiteral("A"), QStringLiteral("1"));
        EXPECT_EQ(failureOf(client), Kind::NotAService);
        EXPECT_EQ(client.lastFailure()->contentType, type);
        EXPECT_EQ(client.lastFailure()->finalUrl, server.url(QStringLiteral("/login")));
    }
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
    start(server);
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
    start(server);
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
    ScriptedServer server(Reply::whole(404, "page"));
    start(server);
    client_->waitOne();

    EXPECT_THAT(log.lines(),
                ElementsAre(QStringLiteral(
                    "download Finish Error: Error Domain=HTTP Error Code=404 \"(null)\"")));
    EXPECT_THAT(delegate_.paths, IsEmpty());
    EXPECT_EQ(failureOf(*client_), Kind::HttpStatus);
    EXPECT_EQ(client_->doGetDownloadProgress().failure,
              QStringLiteral("The server answered with HTTP status 404."));
}

TEST_P(Client, StopsItsDownloadWhenItGoes)
{
    for (const QByteArray &beginning : {QByteArray(), halfAFile}) {
        ScriptedServer server(silentAfter(beginning));
        start(server); // Gone before the transfer has begun.
        client_.reset();
        EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
        QFile::remove(path_);

        ScriptedServer second(silentAfter(beginning)); // Gone in the middle of it.
        start(second);
        const QByteArray received = beginning.right(beginning.isEmpty() ? 0 : 10);
        ASSERT_TRUE(waitFor([&] { return !second.requests().empty() && file() == received; }));
        EXPECT_GT(libraryThreads(), 0);
        client_.reset();
        EXPECT_EQ(file(), received);
        EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
        QFile::remove(path_);
    }
    EXPECT_THAT(delegate_.paths, IsEmpty());
}

TEST_P(Client, MayGoInTheMiddleOfItsDelegatesCall)
{
    ScriptedServer server(Reply::whole(200, "new"));
    delegate_.onFinish = [this] { client_.reset(); };
    start(server);
    ASSERT_TRUE(waitFor([this] { return delegate_.finished == 1; }));
    EXPECT_EQ(client_, nullptr);
    EXPECT_EQ(file(), "new");
}

TEST_P(Client, MayGoInTheCallOfAReplacedDownload)
{
    const auto gate = std::make_shared<Gate>();
    ScriptedServer first(Reply().send(halfAFile).wait(gate).send("abcdefghij"));
    ScriptedServer second(silentAfter(halfAFile));
    delegate_.onFinish = [this] { client_.reset(); };
    start(first);
    ASSERT_TRUE(waitFor([this] { return file() == "0123456789"; }));
    const QString other = directory_.filePath(QStringLiteral("B.bin"));
    start(second, other);
    ASSERT_TRUE(waitFor([&] { return readFile(other) == "0123456789"; }));
    gate->open();
    ASSERT_TRUE(waitFor([this] { return delegate_.finished == 1; }));
    EXPECT_EQ(client_, nullptr);
    EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
    EXPECT_EQ(readFile(other), "0123456789");
}

TEST_P(Client, MayGoOnAThreadWithoutAnEventLoop)
{
    ScriptedServer server(silentAfter(halfAFile));
    start(server);
    ASSERT_TRUE(waitFor([this] { return file() == "0123456789"; }));
    std::thread([this] { client_.reset(); }).join();
    EXPECT_THAT(delegate_.paths, IsEmpty());
}
