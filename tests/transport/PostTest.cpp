#include "platform/HttpExchange.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"
#include "transport/HttpFunctionPost.h"

#include <gmock/gmock.h>

#include <limits>

using namespace ZVPlatform;
using testing::ElementsAre;
using testing::StartsWith;
using Reply = ScriptedServer::Reply;

namespace {

const QString command = QStringLiteral("cmd=gettoken");

std::optional<QString> post(const QString &url)
{
    return HttpFunctionPost::getPost(url, nullptr)->DoPost(command, std::nullopt);
}

uint64_t probe(const QString &url)
{
    return HttpFunctionPost::getPost(url, nullptr)->getFileSize(command);
}

// Port 1 is reserved for a service that nobody runs.
const QString refusingUrl = QStringLiteral("http://127.0.0.1:1/?dt=");

void expectOneConnectError(const LogCapture &log)
{
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_THAT(log.lines().first().toStdString(), StartsWith("connect error: "));
    EXPECT_GT(log.lines().first().size(), 20) << "The line says why.";
}

} // namespace

TEST(Post, HasThisFormOnTheWireWhateverTheData)
{
    ScriptedServer server(Reply::whole(200, "reply"));
    const auto transport = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
    EXPECT_EQ(transport->DoPost(command, std::nullopt), QStringLiteral("reply"));
    EXPECT_EQ(transport->DoPost(command, QByteArray("data")), QStringLiteral("reply"));

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

TEST(Post, WithoutParametersSendsNothing)
{
    const LogCapture log;
    ScriptedServer server(Reply::whole(200, "reply"));
    const auto transport = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
    EXPECT_EQ(transport->DoPost(QString(), std::nullopt), QString());
    EXPECT_EQ(transport->getFileSize(QString()), 0u);
    EXPECT_TRUE(server.requests().empty());
    EXPECT_TRUE(log.lines().isEmpty());
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
        {200, QByteArray(16 << 20, 'x'), QString(16 << 20, u'x')},
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
    const Reply replies[] = {
        Reply().close(),
        Reply().reset(),
        Reply().send(begun).close(),
        Reply().send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nhalf").close(),
        Reply().send("no HTTP at all\r\n\r\n").close(),
        Reply::whole(200, QByteArray((16 << 20) + 1, 'x')),
        Reply::whole(302, {}, {"Location: /again"}),
        Reply::whole(302, {}, {"Location: file:///etc/hostname"}),
        Reply::whole(302, {}, {"Location: ftp://127.0.0.1/file"}),
    };
    for (const Reply &reply : replies) {
        SCOPED_TRACE(&reply - replies);
        const LogCapture log;
        ScriptedServer server(reply);
        EXPECT_EQ(post(server.baseUrl()), std::nullopt);
        expectOneConnectError(log);
        EXPECT_LE(server.requests().size(), 11u) << "A few redirects are followed, not many.";
    }
}

TEST(Post, WithoutAServerOrAValidUrlIsLoggedOnce)
{
    ScriptedServer server(Reply::whole(200, "reply"));
    for (const QString &url :
         {refusingUrl, QString(server.baseUrl() + u'\n'),
          QString(server.baseUrl() + QChar(QChar::Null)), QStringLiteral("file:///etc/passwd?dt="),
          QStringLiteral("http://?dt=")}) {
        SCOPED_TRACE(qPrintable(url));
        const LogCapture log;
        EXPECT_EQ(probe(url), 0u) << "Not logged.";
        EXPECT_EQ(post(url), std::nullopt);
        expectOneConnectError(log);
    }
    EXPECT_TRUE(server.requests().empty());
}

TEST(Probe, ReturnsTheAnnouncedLengthWhateverTheStatus)
{
    constexpr uint64_t unknown = std::numeric_limits<uint64_t>::max();
    const struct
    {
        QByteArray head;
        uint64_t size;
    } rows[] = {
        {"200 OK\r\nContent-Length: 52428800", 52428800},
        {"200 OK\r\nContent-Length: 5368709123", 5368709123},
        {"200 OK\r\nContent-Length: 0", 0},
        {"404 Not Found\r\nContent-Length: 7", 7},
        {"500 Broken\r\nContent-Length: 8", 8},
        {"200 OK", unknown},
        {"200 OK\r\nTransfer-Encoding: chunked", unknown},
    };
    const LogCapture log;
    for (const auto &row : rows) {
        ScriptedServer server(Reply().send("HTTP/1.1 " + row.head + "\r\n\r\n"));
        EXPECT_EQ(probe(server.baseUrl()), row.size) << row.head.data();
        ASSERT_EQ(server.requests().size(), 1u);
        EXPECT_EQ(server.requests()[0].method, "HEAD");
        EXPECT_EQ(server.requests()[0].command(), command);
        EXPECT_EQ(server.requests()[0].headerLines.size(), 2) << "Host and Accept only.";
    }
    EXPECT_TRUE(log.lines().isEmpty());
}
