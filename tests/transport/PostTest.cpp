#include "platform/http/HttpErrors.h"
#include "platform/http/HttpReply.h"
#include "support/Exchanges.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"

#include <QScopeGuard>

#include <gmock/gmock.h>

#include <csignal>
#include <limits>

using namespace ZVPlatform;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::StartsWith;
using Reply = ScriptedServer::Reply;

namespace {

const QString command = QStringLiteral("cmd=gettoken");

// Port 1 is reserved for a service that nobody runs.
const QString refusingUrl = QStringLiteral("http://127.0.0.1:1/?dt=");

// A command that fails, and is logged once.
void expectConnectError(const QString &url, const char *reason)
{
    const LogCapture log;
    EXPECT_EQ(post(url), std::nullopt);
    EXPECT_EQ(log.lines(), QStringList(QStringLiteral("connect error: ") + QLatin1String(reason)));
}

const char *const lost = "The connection was lost before the reply was complete.";
const char *const redirectRefused = "The server redirected to an address that is not allowed.";
const char *const invalid = "The server's reply is not valid HTTP.";
const char *const unreachable = "The server could not be reached.";

} // namespace

TEST(Post, HasThisFormOnTheWireWhateverTheData)
{
    ScriptedServer server(Reply::whole(200, "reply"));
    const auto transport = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
    EXPECT_EQ(transport->DoPost(command, std::nullopt), QStringLiteral("reply"));
    EXPECT_EQ(transport->DoPost(command, QByteArray("data")), QStringLiteral("reply"));
    EXPECT_EQ(transport->DoPost(QString(), std::nullopt), QString()) << "Without parameters";
    EXPECT_EQ(transport->getFileSize(QString()), 0u) << "nothing is sent.";

    // A body of the first request would be taken for the beginning of the second.
    ASSERT_EQ(server.requests().size(), 2u);
    for (const ScriptedServer::Request &request : server.requests()) {
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.target, "/Update/ZVDLCtl.dll?dt=7D4470DA8E2DCE6836729BBA61EC3DBB");
        EXPECT_THAT(request.headerLines,
                    ElementsAre("Host: " + server.url().toUtf8().mid(7), "Accept: */*",
                                "Connection: Keep-Alive",
                                "Content-Type: application/x-www-form-urlencoded",
                                "Content-Length: 0"));
    }
}

TEST(Post, ReturnsTheBodyWhateverTheStatus)
{
    const LogCapture log;
    const struct
    {
        int status;
        QByteArray body;
        std::optional<QString> text;
    } rows[] = {
        {200, "{\"ok\":true}", QStringLiteral("{\"ok\":true}")},
        {200, QByteArrayLiteral("\xEF\xBB\xBF\xE6\x9B\xB4\0"),
         QStringView(u"\uFEFF\u66F4\0", 3).toString()},
        {404, "<p>Not found</p>", QStringLiteral("<p>Not found</p>")},
        {500, "broken", QStringLiteral("broken")},
        {200, "", QString()},
        {200, "caf\xE9", std::nullopt},
        {200, QByteArray(2 << 20, 'x'), QString(2 << 20, u'x')},
    };
    for (const auto &row : rows) {
        ScriptedServer server(Reply::whole(row.status, row.body));
        EXPECT_TRUE(post(server.baseUrl()) == row.text) << row.status << row.body.left(50).data();
    }
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST(Post, WithoutAWholeReplyIsLoggedOnce)
{
    const QByteArray begun = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf";
    const auto redirect = [](const QByteArray &location) {
        return Reply::whole(302, {}, {"Location: " + location});
    };
    const struct
    {
        Reply reply;
        const char *reason = nullptr;
        size_t requests = 1;
    } rows[] = {
        {Reply().close(), lost},
        {Reply().reset(), lost},
        {Reply().send(begun).close(), lost},
        {Reply().send("no HTTP at all\r\n\r\n").close(), invalid},
        {Reply().send("HTTP/1.1 200 OK\r\nTransfer-Encoding: odd\r\n\r\nx").close(), invalid},
        {Reply::whole(200, QByteArray((2 << 20) + 1, 'x')), "The server's reply is too large."},
        {redirect("/again"), "The server redirected too many times.", 11},
        {redirect("file:///etc/hostname"), redirectRefused},
        {redirect("ftp://127.0.0.1/file"), redirectRefused},
        {redirect("http://[/"), redirectRefused},
        {redirect("http://127.0.0.1:1/"), unreachable},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        ScriptedServer server(row.reply);
        expectConnectError(server.baseUrl(), row.reason);
        EXPECT_EQ(server.requests().size(), row.requests);
    }
    // Whether a break shows while something is sent is a matter of time.
    EXPECT_EQ(errorFromCurl(CURLE_SEND_ERROR).code, static_cast<int>(NetworkError::ConnectionLost));
}

TEST(Post, FollowsTenRedirectsAndLeavesThePathAsItIs)
{
    int redirects = 0;
    ScriptedServer server([&](const ScriptedServer::Request &) {
        return ++redirects <= 10 ? Reply::whole(307, {}, {"Location: /next"})
                                 : Reply::whole(200, "reply");
    });
    EXPECT_EQ(post(server.url(QStringLiteral("/./a/../b?dt="))), QStringLiteral("reply"));
    EXPECT_THAT(server.requests()[0].target.toStdString(), StartsWith("/./a/../b?dt=7D44"));
}

TEST(Post, WithoutAServerOrAValidUrlIsLoggedOnce)
{
    ScriptedServer server(Reply::whole(200, "reply"));
    const char *const badUrl = "The address is not a valid URL.";
    const std::pair<QString, const char *> rows[] = {
        {refusingUrl, unreachable},
        {QString(server.baseUrl() + u'\n'), badUrl},
        {QString(server.baseUrl() + QChar(QChar::Null)), badUrl},
        {QStringLiteral("http://?dt="), badUrl},
        {QStringLiteral("file:///etc/passwd?dt="), "The address is neither http nor https."},
        // No name server is asked for a name with so long a part.
        {QStringLiteral("http://") + QString(64, u'x') + QStringLiteral("/?dt="),
         "The server's name could not be found."},
    };
    for (const auto &[url, reason] : rows) {
        SCOPED_TRACE(qPrintable(url));
        EXPECT_EQ(probe(url), 0u);
        expectConnectError(url, reason);
    }
    EXPECT_TRUE(server.requests().empty());
}

TEST(Probe, ReturnsTheAnnouncedLengthWhateverTheStatus)
{
    constexpr uint64_t unknown = std::numeric_limits<uint64_t>::max();
    const std::pair<QByteArray, uint64_t> rows[] = {
        {"200 OK\r\nContent-Length: 52428800", 52428800},
        {"200 OK\r\nContent-Length: 5368709123", 5368709123},
        {"200 OK\r\nContent-Length: 0", 0},
        {"404 Not Found\r\nContent-Length: 7", 7},
        {"500 Broken\r\nContent-Length: 8", 8},
        {"200 OK", unknown},
        {"200 OK\r\nTransfer-Encoding: chunked", unknown},
    };
    const LogCapture log;
    for (const auto &[head, size] : rows) {
        ScriptedServer server(Reply().send("HTTP/1.1 " + head + "\r\n\r\n"));
        EXPECT_EQ(probe(server.baseUrl()), size) << head.data();
        ASSERT_EQ(server.requests().size(), 1u);
        EXPECT_EQ(server.requests()[0].method, "HEAD");
        EXPECT_EQ(server.requests()[0].command(), command);
        EXPECT_EQ(server.requests()[0].headerLines.size(), 2) << "Host and Accept only.";
    }
    EXPECT_TRUE(log.lines().isEmpty());
}

namespace {

/// An error's code; 0 for none.
int outcomeOf(const HttpRequest &request)
{
    HttpExchange exchange(request);
    HttpReply reply;
    const auto result = sendSynchronously(exchange, reply);
    return result ? 0 : result.error().code;
}

constexpr auto timedOut = static_cast<int>(NetworkError::TimedOut);

/// Takes its time for the bytes, or cannot take them.
class DifficultReceiver : public HttpReceiver
{
public:
    explicit DifficultReceiver(milliseconds time) : time_(time) {}

    void didReceiveResponse(const HttpResponse &) override {}
    Result<void, Error> didReceiveData(const QByteArray &) override
    {
        EXPECT_EQ(onBrokenPipe(), onBrokenPipe_) << "That is the host's alone.";
        if (time_.count() == 0)
            throw std::bad_alloc();
        std::this_thread::sleep_for(time_);
        end = std::chrono::steady_clock::now();
        return {};
    }
    void didFinish(const Result<void, Error> &result) override
    {
        code = result ? 0 : result.error().code;
    }

    std::chrono::steady_clock::time_point end;
    int code = -1;

private:
    static sighandler_t onBrokenPipe()
    {
        struct sigaction action = {};
        sigaction(SIGPIPE, nullptr, &action);
        return action.sa_handler;
    }

    const milliseconds time_;
    const sighandler_t onBrokenPipe_ = onBrokenPipe();
};

} // namespace

TEST(Exchange, EndsWhenItsPeerIsSilentForTooLong)
{
    const QByteArray head = "HTTP/1.1 206 Part\r\n";
    for (const QByteArray &beginning :
         {QByteArray(), head + "Conte", head + "Transfer-Encoding: chunked\r\n\r\n",
          head + "Content-Length: 9\r\n\r\nhalf"}) {
        SCOPED_TRACE(beginning.data());
        ScriptedServer server(Reply().send(beginning).wait(std::make_shared<Gate>()));
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(outcomeOf({.url = server.url(), .idleTimeout = milliseconds(100)}), timedOut);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(100));
    }
}

TEST(Exchange, MayBeSlowForAsLongAsItsTimeInAllLasts)
{
    Reply slow = Reply().send("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n");
    for (int i = 0; i < 50; ++i)
        slow.pause(milliseconds(50)).send("x");
    ScriptedServer server(slow);
    HttpRequest request{.url = server.url(), .idleTimeout = milliseconds(2000)};
    EXPECT_EQ(outcomeOf(request), 0) << "Longer in all, but never without a byte.";
    request.timeLimit = milliseconds(200);
    EXPECT_EQ(outcomeOf(request), timedOut);

    Reply connecting = Reply().send("HTTP/1.1 200 OK\r\n");
    for (int i = 0; i < 500; ++i)
        connecting.pause(milliseconds(20)).send("X: y\r\n");
    ScriptedServer proxy(connecting);
    qputenv("https_proxy", proxy.url().toLatin1());
    const auto restore = qScopeGuard([] { qunsetenv("https_proxy"); });
    request = {.url = QStringLiteral("https://127.0.0.1:1/"), .idleTimeout = milliseconds(200)};
    EXPECT_EQ(outcomeOf(request), timedOut) << "That a proxy is busy is no sign of the peer.";
}

TEST(Exchange, DoesNotTakeTheReceiversTimeForThePeers)
{
    const milliseconds timeout(200);
    ScriptedServer server(Reply()
                              .send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf")
                              .wait(std::make_shared<Gate>()));
    DifficultReceiver receiver(timeout);
    HttpExchange({.url = server.url(), .idleTimeout = timeout}).run(receiver);
    EXPECT_EQ(receiver.code, timedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - receiver.end, timeout);
}

TEST(Exchange, IsOverWhenItsReceiverThrows)
{
    for (const qsizetype size : {10, 1'000'000}) {
        ScriptedServer server(Reply::whole(200, QByteArray(size, 'x')));
        DifficultReceiver receiver(milliseconds(0));
        HttpExchange({.url = server.url()}).run(receiver);
        EXPECT_EQ(receiver.code, static_cast<int>(NetworkError::Other));
    }
}
