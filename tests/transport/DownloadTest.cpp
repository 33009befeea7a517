#include "platform/Files.h"
#include "platform/HttpExchange.h"
#include "support/DownloadModes.h"
#include "support/ScriptedServer.h"
#include "support/TestFiles.h"
#include "support/WaitFor.h"
#include "transport/HttpFunctionPost.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <ostream>

using namespace ZVPlatform;
using testing::ElementsAre;
using testing::IsEmpty;
using Reply = ScriptedServer::Reply;

namespace {

const QString command = QStringLiteral("cmd=download&tk=T1&fn=P1_2103.exe");

/// What a delegate was told, and how. It outlives its delegate.
class Reports
{
public:
    void add(const std::string &outcome, bool wasStopped)
    {
        const std::lock_guard lock(mutex_);
        outcomes_.push_back(outcome);
        thread_ = std::this_thread::get_id();
        wasStopped_ = wasStopped;
    }

    /// "file PATH" or "DOMAIN CODE", one for each call.
    std::vector<std::string> outcomes() const { return read(outcomes_); }
    std::thread::id thread() const { return read(thread_); }
    /// What isThreadStop() said during the call.
    bool wasStopped() const { return read(wasStopped_); }

private:
    template <class T>
    T read(const T &value) const
    {
        const std::lock_guard lock(mutex_);
        return value;
    }

    mutable std::mutex mutex_;
    std::vector<std::string> outcomes_;
    std::thread::id thread_;
    bool wasStopped_ = false;
};

class Delegate : public HttpFunctionPostDelegate
{
public:
    Delegate(std::shared_ptr<Reports> reports, const std::weak_ptr<HttpFunctionPost> &transport)
        : reports_(std::move(reports)), transport_(transport)
    {
    }
    ~Delegate() override { retire(); }

    void downloadFinishWithFilePath(const QString &path) override
    {
        report("file " + path.toStdString());
    }

    void downloadFinishWithError(const Error &error) override
    {
        report(error.domain.toStdString() + ' ' + std::to_string(error.code));
    }

private:
    void report(const std::string &outcome)
    {
        const auto transport = transport_.lock();
        reports_->add(outcome, transport && transport->isThreadStop());
    }

    const std::shared_ptr<Reports> reports_;
    const std::weak_ptr<HttpFunctionPost> transport_;
};

std::string network(NetworkError code)
{
    return std::string(networkErrorDomain) + ' ' + std::to_string(static_cast<int>(code));
}

/// One transport with its delegate and its local file. A session needs no event loop and is not
/// given one.
class DownloadFixture : public testing::Test
{
protected:
    explicit DownloadFixture(DownloadMode mode)
        : isSession_(mode == DownloadMode::Session),
          meanwhile_(isSession_ ? Meanwhile::Sleep : Meanwhile::RunEventLoop),
          switch_(mode)
    {
    }

    // No thread outlasts its download.
    void TearDown() override
    {
        transport_.reset();
        EXPECT_TRUE(wait([] { return libraryThreads() == 0; }));
    }

    void start(const ScriptedServer &server)
    {
        transport_ = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
        delegate_ = std::make_unique<Delegate>(reports_, transport_);
        transport_->setDelegate(delegate_.get());
        EXPECT_EQ(transport_->DoDownloadAsync(command, path_), 1);
    }

    bool wait(const std::function<bool()> &condition) const
    {
        return waitFor(condition, meanwhile_);
    }
    bool waitForSize(quint64 size) const
    {
        return wait([&] { return Files::size(path_) == size; });
    }
    bool waitForEnd() const
    {
        return wait([this] { return transport_->isThreadStop(); });
    }
    // Lets go of the transport and waits until the download has, too: then nothing more can come.
    bool waitForLastOwner()
    {
        const std::weak_ptr<HttpFunctionPost> transport = transport_;
        transport_.reset();
        return wait([&] { return transport.expired(); });
    }

    std::string fileOutcome() const { return "file " + path_.toStdString(); }

    const bool isSession_;
    const Meanwhile meanwhile_;
    const DownloadModeSwitch switch_;
    const QTemporaryDir directory_;
    const QString path_ = directory_.filePath(QStringLiteral("P1_2103.bin"));
    const std::shared_ptr<Reports> reports_ = std::make_shared<Reports>();
    std::shared_ptr<HttpFunctionPost> transport_;
    std::unique_ptr<Delegate> delegate_;
};

class Download : public DownloadFixture, public testing::WithParamInterface<DownloadMode>
{
protected:
    Download() : DownloadFixture(GetParam()) {}
};

class DownloadOverConnection : public DownloadFixture
{
protected:
    DownloadOverConnection() : DownloadFixture(DownloadMode::Connection) {}
};

template <class Case>
std::string nameOfCase(const testing::TestParamInfo<std::tuple<DownloadMode, Case>> &test)
{
    return std::string(nameOf(std::get<DownloadMode>(test.param))) +
           std::get<Case>(test.param).name;
}

const auto bothModes = testing::Values(DownloadMode::Session, DownloadMode::Connection);
INSTANTIATE_TEST_SUITE_P(, Download, bothModes, testing::PrintToStringParamName());

// A reply that stops at a gate in the middle of a body of 20 bytes.
Reply halfOf20(const QByteArray &status, const std::shared_ptr<Gate> &gate)
{
    return Reply()
        .send("HTTP/1.1 " + status + "\r\nContent-Length: 20\r\n\r\n0123456789")
        .wait(gate);
}

} // namespace

TEST_P(Download, FetchesAFileAndReportsOnceOnItsThread)
{
    const QByteArray content = QByteArrayLiteral("0123456789abcdef!").repeated(200'000);
    ScriptedServer server(
        [&](const ScriptedServer::Request &request) { return Reply::file(request, content); });
    start(server);
    ASSERT_TRUE(waitForEnd());

    EXPECT_TRUE(readFile(path_) == content);
    EXPECT_THAT(reports_->outcomes(), ElementsAre(fileOutcome()));
    EXPECT_FALSE(reports_->wasStopped()) << "The end shows only after the report.";
    EXPECT_EQ(reports_->thread() == std::this_thread::get_id(), !isSession_);
    EXPECT_EQ(transport_->mCancelDownloadTempFile(), path_);
    EXPECT_EQ(transport_->downloadedBytes(), static_cast<uint64_t>(content.size()));
    EXPECT_EQ(transport_->expectedBytes(), content.size());
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_EQ(server.requests()[0].method, "GET");
    EXPECT_EQ(server.requests()[0].command(), command);
    EXPECT_THAT(server.requests()[0].headerLines,
                ElementsAre("Host: " + server.url().toUtf8().mid(7), "Accept: */*",
                            "User-Agent: Mozilla/5.0 (Windows NT 6.3; WOW64; rv:36.0) "
                            "Gecko/20100101 Firefox/36.0",
                            "Connection: Keep-Alive"));
}

TEST_P(Download, AsksOnlyForWhatIsMissing)
{
    const QByteArray content = QByteArrayLiteral("0123456789abcdef").repeated(100'000);
    ScriptedServer server([&](const ScriptedServer::Request &request) {
        return request.target == "/moved" ? Reply::file(request, content)
                                          : Reply::whole(302, "here", {"Location: /moved"});
    });
    writeFile(path_, content.left(1048576));
    start(server);
    ASSERT_TRUE(waitForEnd());

    EXPECT_TRUE(readFile(path_) == content);
    EXPECT_THAT(reports_->outcomes(), ElementsAre(fileOutcome()));
    EXPECT_EQ(transport_->expectedBytes(), content.size());
    ASSERT_EQ(server.requests().size(), 2u) << "A redirect is followed.";
    for (const ScriptedServer::Request &request : server.requests())
        EXPECT_EQ(request.headerLines.value(2), "Range: bytes=1048576-");
}

TEST_P(Download, HappensOnceATransport)
{
    ScriptedServer server(Reply::whole(200, "content"));
    const QString second = directory_.filePath(QStringLiteral("second"));
    start(server);
    EXPECT_EQ(transport_->DoDownloadAsync(command, second), 1);
    ASSERT_TRUE(waitForLastOwner());

    EXPECT_EQ(server.requests().size(), 1u);
    EXPECT_THAT(reports_->outcomes(), ElementsAre(fileOutcome()));
    EXPECT_EQ(readFile(path_), "content");
    EXPECT_FALSE(Files::exists(second));
}

TEST_P(Download, NeedsNeitherADelegateNorAnOwner)
{
    const auto gate = std::make_shared<Gate>();
    ScriptedServer server(halfOf20("200 OK", gate).send("abcdefghij"));
    start(server);
    ASSERT_TRUE(waitForSize(10));
    EXPECT_GT(libraryThreads(), 0);
    delegate_.reset();
    EXPECT_EQ(transport_->delegate(), nullptr);
    EXPECT_FALSE(transport_->isThreadStop());
    gate->open();
    ASSERT_TRUE(waitForLastOwner());

    EXPECT_EQ(readFile(path_), "0123456789abcdefghij");
    EXPECT_THAT(reports_->outcomes(), IsEmpty());
}

TEST_P(Download, SharesTheConnectionOfTheCommandsBeforeIt)
{
    ScriptedServer server(
        [](const ScriptedServer::Request &request) { return Reply::file(request, "content"); });
    const auto commands = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
    commands->DoPost(QStringLiteral("cmd=checkupd&id=P1&ver=2100"), std::nullopt);
    commands->DoPost(QStringLiteral("cmd=gettoken"), std::nullopt);
    EXPECT_EQ(commands->getFileSize(command), 7u);
    start(server);
    ASSERT_TRUE(waitForEnd());

    QByteArrayList exchanges;
    for (const ScriptedServer::Request &request : server.requests())
        exchanges.append(request.method + QByteArray::number(request.connection));
    EXPECT_THAT(exchanges, ElementsAre("POST1", "POST1", "HEAD1", "GET1"));
}

TEST_P(Download, IsNotStoppedBeforeItsTransferHasBegun)
{
    ScriptedServer server(Reply::whole(200, "content"));
    transport_ = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
    EXPECT_EQ(transport_->threadStop(), 0);
    EXPECT_FALSE(transport_->isThreadStop());
    start(server);
    if (!isSession_) {
        // Until the event loop runs, there is no connection to stop.
        ASSERT_TRUE(waitFor([this] { return transport_->mOpen() == 1; }, Meanwhile::Sleep));
        EXPECT_EQ(transport_->threadStop(), 0);
        EXPECT_TRUE(server.requests().empty());
    }
    ASSERT_TRUE(waitForEnd());

    EXPECT_EQ(transport_->mThreadEndFlag(), 0);
    EXPECT_THAT(reports_->outcomes(), ElementsAre(fileOutcome()));
    EXPECT_EQ(readFile(path_), "content");
}

// A session does not: no test gives it an event loop.
TEST_F(DownloadOverConnection, WaitsForTheEventLoop)
{
    const auto half = std::make_shared<Gate>();
    const auto end = std::make_shared<Gate>();
    ScriptedServer server(halfOf20("200 OK", half).send("abcdefghij").wait(end));
    start(server);
    ASSERT_TRUE(waitForSize(10));
    half->open();
    ASSERT_TRUE(waitFor([&] { return end->isReached(); }, Meanwhile::Sleep));
    EXPECT_EQ(readFile(path_), "0123456789");
    EXPECT_FALSE(transport_->isThreadStop());

    EXPECT_TRUE(waitForEnd());
    EXPECT_EQ(readFile(path_), "0123456789abcdefghij");
}

TEST_F(DownloadOverConnection, OutlastsTheTimeOutWhileBytesArrive)
{
    const auto former = HttpExchange::idleTimeout();
    EXPECT_EQ(former, std::chrono::seconds(60));
    HttpExchange::setIdleTimeout(std::chrono::seconds(2));
    std::vector<std::shared_ptr<Gate>> gates(25);
    Reply reply;
    reply.send("HTTP/1.1 200 OK\r\nContent-Length: 25\r\n\r\n");
    for (auto &gate : gates)
        reply.wait(gate = std::make_shared<Gate>()).send("x");
    ScriptedServer server(reply);
    start(server);
    for (const auto &gate : gates) {
        const auto next = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
        ASSERT_TRUE(wait([&] { return std::chrono::steady_clock::now() >= next; }));
        gate->open();
    }
    EXPECT_TRUE(waitForEnd());
    HttpExchange::setIdleTimeout(former);
    EXPECT_THAT(reports_->outcomes(), ElementsAre(fileOutcome()));
}

namespace {

/// How a download ends that is left alone: what the file holds before and after, what the server
/// does, and what the delegate hears in each mode ("file" for success).
struct Ending
{
    const char *name;
    std::optional<QByteArray> before;
    Reply reply;
    std::string session;
    std::string connection;
    std::optional<QByteArray> after;
};

void PrintTo(const Ending &ending, std::ostream *stream)
{
    *stream << ending.name;
}

// Half of a body, then the end of the connection.
Reply brokenIn(const QByteArray &status)
{
    return Reply().send("HTTP/1.1 " + status + "\r\nContent-Length: 20\r\n\r\n0123456789").close();
}

const QByteArray chunk = "\r\nTransfer-Encoding: chunked\r\n\r\na\r\n0123456789\r\n";
const std::string lost = network(NetworkError::ConnectionLost);

const Ending endings[] = {
    {"NewFile", {}, Reply::whole(200, "new"), "file", "file", "new"},
    {"EmptyFile", "", Reply::whole(200, "new"), "file", "file", "new"},
    {"Resumed", "old+", Reply::whole(206, "new"), "file", "file", "old+new"},
    {"RangeIgnored", "old+", Reply::whole(200, "old+new"), "file", "file", "old+old+new"},
    {"NoContent", {}, Reply().send("HTTP/1.1 204 None\r\n\r\n"), "file", "file", {}},
    {"NothingMissing", "old", Reply::whole(206, ""), "file", "file", "old"},
    {"Chunked",
     {},
     Reply().send("HTTP/1.1 200 OK" + chunk + "0\r\n\r\n"),
     "file",
     "file",
     "0123456789"},
    {"UntilTheEnd", {}, Reply().send("HTTP/1.0 200 OK\r\n\r\nnew").close(), "file", "file", "new"},
    {"AfterInterimReply",
     {},
     Reply().send("HTTP/1.1 102 Wait\r\n\r\nHTTP/1.1 200 OK\r\n"
                  "Content-Length: 3\r\n\r\nnew"),
     "file",
     "file",
     "new"},
    {"NotFound", "old", Reply::whole(404, "page"), "HTTP Error 404", "HTTP Error 404", "old"},
    {"ServerError", {}, Reply::whole(500, "page"), "HTTP Error 500", "HTTP Error 500", {}},
    {"Complete", "old", Reply::whole(416, "page"), "HTTP Error 416", "HTTP Error 416", "old"},
    {"NotModified", "old", Reply().send("HTTP/1.1 304 Same\r\n\r\n"), "HTTP Error 304",
     "HTTP Error 304", "old"},
    {"BrokenFile", {}, brokenIn("200 OK"), lost, "HTTP Error 200", "0123456789"},
    {"BrokenResumed", "old+", brokenIn("206 Part"), lost, "HTTP Error 206", "old+0123456789"},
    {"BrokenChunks",
     {},
     Reply().send("HTTP/1.1 200 OK" + chunk).close(),
     lost,
     "HTTP Error 200",
     "0123456789"},
    {"BrokenError", "old", brokenIn("503 Busy"), "HTTP Error 503", "HTTP Error 503", "old"},
    {"NoReply", "old", Reply().close(), "HTTP Error 0", "HTTP Error 0", "old"},
    {"HalfAHeader", "old", Reply().send("HTTP/1.1 200 OK\r\nConte").close(), "HTTP Error 0",
     "HTTP Error 0", "old"},
    {"OnlyInterimReply",
     {},
     Reply().send("HTTP/1.1 102 Wait\r\n\r\n").close(),
     "HTTP Error 0",
     "HTTP Error 0",
     {}},
    {"RedirectLoop",
     {},
     Reply::whole(302, "page", {"Location: /again"}),
     "HTTP Error 302",
     "HTTP Error 302",
     {}},
    {"RedirectToFile",
     {},
     Reply::whole(302, "page", {"Location: file:///etc/hostname"}),
     "HTTP Error 302",
     "HTTP Error 302",
     {}},
    {"RedirectToFtp",
     {},
     Reply::whole(302, "page", {"Location: ftp://127.0.0.1/f"}),
     "HTTP Error 302",
     "HTTP Error 302",
     {}},
};

class DownloadEnding : public DownloadFixture,
                       public testing::WithParamInterface<std::tuple<DownloadMode, Ending>>
{
protected:
    DownloadEnding() : DownloadFixture(std::get<DownloadMode>(GetParam())) {}
};

INSTANTIATE_TEST_SUITE_P(, DownloadEnding, testing::Combine(bothModes, testing::ValuesIn(endings)),
                         nameOfCase<Ending>);

} // namespace

TEST_P(DownloadEnding, IsReportedByMode)
{
    const Ending &ending = std::get<Ending>(GetParam());
    if (ending.before)
        writeFile(path_, *ending.before);
    ScriptedServer server(ending.reply);
    start(server);
    ASSERT_TRUE(waitForEnd());

    const std::string expected = isSession_ ? ending.session : ending.connection;
    EXPECT_THAT(reports_->outcomes(), ElementsAre(expected == "file" ? fileOutcome() : expected));
    EXPECT_EQ(Files::exists(path_), ending.after.has_value());
    EXPECT_EQ(readFile(path_), ending.after.value_or(QByteArray()));
    ASSERT_FALSE(server.requests().empty());
    EXPECT_EQ(server.requests()[0].header("Range").isNull(), ending.before.value_or("").isEmpty());
}

namespace {

/// Where a download is when the server falls silent: the bytes of the reply that have arrived,
/// those of the file among them, and what a session's delegate hears when the download is stopped
/// then, and when the time runs out.
struct Silence
{
    const char *name;
    QByteArray reply;
    QByteArray nextByte;
    quint64 received;
    std::string stopped;
    std::string timedOut;
};

void PrintTo(const Silence &silence, std::ostream *stream)
{
    *stream << silence.name;
}

const Silence silences[] = {
    {"BeforeTheReply", "", "H", 0, "HTTP Error 0", "HTTP Error 0"},
    {"InTheHeader", "HTTP/1.1 206 Part\r\nConte", "n", 0, "HTTP Error 0", "HTTP Error 0"},
    {"InTheBody", "HTTP/1.1 206 Part\r\nContent-Length: 20\r\n\r\n01234", "5", 5,
     network(NetworkError::Cancelled), network(NetworkError::TimedOut)},
};

class DownloadSilence : public DownloadFixture,
                        public testing::WithParamInterface<std::tuple<DownloadMode, Silence>>
{
protected:
    DownloadSilence() : DownloadFixture(std::get<DownloadMode>(GetParam())) {}

    bool startAndWaitForSilence()
    {
        start(server_);
        return wait([this] { return gate_->isReached(); }) && waitForSize(silence_.received);
    }

    const Silence &silence_ = std::get<Silence>(GetParam());
    const std::shared_ptr<Gate> gate_ = std::make_shared<Gate>();
    ScriptedServer server_{Reply()
                               .send(silence_.reply)
                               .wait(gate_)
                               .send(silence_.nextByte)
                               .wait(std::make_shared<Gate>())};
};

INSTANTIATE_TEST_SUITE_P(, DownloadSilence,
                         testing::Combine(bothModes, testing::ValuesIn(silences)),
                         nameOfCase<Silence>);

} // namespace

// The time-out is a minute; to wait for less shows that a stop does not wait for it.
TEST_P(DownloadSilence, IsEndedByAStopAtOnce)
{
    ASSERT_TRUE(startAndWaitForSilence());
    EXPECT_FALSE(transport_->isThreadStop());
    EXPECT_EQ(transport_->threadStop(), 0);
    EXPECT_EQ(transport_->mThreadEndFlag(), 1);
    if (isSession_) {
        ASSERT_TRUE(waitForEnd());
        EXPECT_FALSE(reports_->wasStopped());
        EXPECT_THAT(reports_->outcomes(), ElementsAre(silence_.stopped));
    } else {
        EXPECT_TRUE(transport_->isThreadStop());
        ASSERT_TRUE(waitForLastOwner());
        EXPECT_THAT(reports_->outcomes(), IsEmpty());
    }
    EXPECT_EQ(Files::size(path_), silence_.received);
}

TEST_P(DownloadSilence, IsEndedByTheTimeOut)
{
    const auto former = HttpExchange::idleTimeout();
    const auto timeout = std::chrono::milliseconds(100);
    ASSERT_TRUE(startAndWaitForSilence());
    // It holds from the next byte on, which makes sure that those before it have arrived.
    HttpExchange::setIdleTimeout(timeout);
    const auto begin = std::chrono::steady_clock::now();
    gate_->open();
    const bool ended = waitForEnd();
    HttpExchange::setIdleTimeout(former);
    ASSERT_TRUE(ended);

    EXPECT_GE(std::chrono::steady_clock::now() - begin, timeout);
    const std::string connection = silence_.received ? "HTTP Error 206" : "HTTP Error 0";
    EXPECT_THAT(reports_->outcomes(), ElementsAre(isSession_ ? silence_.timedOut : connection));
}
