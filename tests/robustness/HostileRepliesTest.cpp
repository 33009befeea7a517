#include "support/Exchanges.h"
#include "support/ScriptedServer.h"
#include "support/Testing.h"

using Reply = ScriptedServer::Reply;
using ZVPlatform::NetworkError;

namespace {

enum Fate { Taken, Refused };

struct HostileReply
{
    const char *name;
    Fate fate;
    int64_t size;       ///< What a probe returns.
    QByteArray arrived; ///< The body, as far as it comes.
    QByteArray reply;
};

const QByteArray ten = "0123456789";
const QByteArray end = "\r\n\r\n";

QByteArray with(const QByteArray &headerLines, const QByteArray &statusLine = "HTTP/1.1 200 OK")
{
    return statusLine + "\r\n" + headerLines + end + ten;
}

QByteArray chunks(const QByteArray &bytes)
{
    return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked" + end + bytes;
}

const QByteArray length = "Content-Length: 10";
constexpr int64_t huge = std::numeric_limits<int64_t>::max();

// After each the server ends the connection.
const HostileReply hostileReplies[] = {
    {"negative length", Refused, 0, "", with("Content-Length: -10")},
    {"half a number", Taken, 10, ten, with("Content-Length: 10x")},
    {"overflowing length", Taken, -1, ten, with("Content-Length: 99999999999999999999")},
    {"the largest length", Refused, huge, ten, with("Content-Length: 9223372036854775807")},
    {"two lengths", Taken, 10, ten, with("Content-Length: 4\r\n" + length)},
    {"length too short", Taken, 4, "0123", with("Content-Length: 4")},
    {"length too long", Refused, 11, ten, with("Content-Length: 11")},
    {"no length", Taken, -1, ten, with("X: y")},
    {"chunks with a trailer", Taken, -1, ten, chunks("a\r\n" + ten + "\r\n0\r\nX: y" + end)},
    {"chunks and a length", Taken, -1, ten,
     chunks("a\r\n" + ten + "\r\n0" + end).replace("Transfer", "Content-Length: 4\r\nTransfer")},
    {"endless trailers", Refused, -1, ten,
     chunks("a\r\n" + ten + "\r\n0\r\n" + QByteArray("X: y\r\n").repeated(50'000) + end)},
    {"chunk extension of 600 KB", Refused, -1, "",
     chunks("a;" + QByteArray(600'000, 'x') + "\r\n" + ten + "\r\n0" + end)},
    {"redirect with 600 KB", Refused, 0, "",
     "HTTP/1.1 302 Go\r\nLocation: /\r\nContent-Length: 600000" + end + QByteArray(600'000, 'x')},
    {"redirects of 150 KB", Refused, 0, "",
     "HTTP/1.1 302 Go\r\nLocation: /\r\n" + QByteArray("X: y\r\n").repeated(25'000) + length + end +
         ten},
    {"bad chunk", Refused, -1, "", chunks("zz\r\n" + ten)},
    {"line of 150 KB", Refused, 0, "", with(length + "\r\nX: " + QByteArray(150'000, 'x'))},
    {"20,000 lines", Taken, 10, ten, with(length + QByteArray("\r\nX: y").repeated(20'000))},
    {"endless lines", Refused, 0, "", with(length + QByteArray("\r\nX: y").repeated(1'000'000))},
    {"endless interim replies", Refused, 0, "",
     QByteArray("HTTP/1.1 103 Hint\r\nX: y\r\n\r\n").repeated(300'000) + with(length)},
    {"zero byte in a header", Refused, 0, "", with(QByteArrayLiteral("X: \0y\r\n") + length)},
    {"folded line", Taken, 10, ten, with("X: y\r\n Content-Length: 4\r\n" + length)},
    {"line feeds only", Taken, 10, ten, with(length).replace("\r\n", "\n")},
    {"no status", Refused, 0, "", with(length, "HTTP/1.1 000 OK")},
    {"another protocol", Refused, 0, "", with("Upgrade: x", "HTTP/1.1 101 Switch")},
    {"HTTP/1.0", Taken, -1, ten, with("X: y", "HTTP/1.0 200 OK")},
    {"HTTP/1.0 that says it stays", Taken, -1, ten,
     with("Connection: keep-alive", "HTTP/1.0 200 OK")},
    {"HTTP/0.9", Refused, 0, "", ten},
    {"half a line", Refused, 0, "", "HTTP/1.1 200 OK\r\nContent-Len"},
    {"header without an end", Refused, 0, "", "HTTP/1.1 200 OK\r\n" + length + "\r\n"},
    {"compressed unasked", Taken, 10, ten, with("Content-Encoding: gzip\r\n" + length)},
};

} // namespace

TEST(HostileReplies, LeadToWhatTheTableSays)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("P1_2103.bin"));
    for (const HostileReply &row : hostileReplies) {
        SCOPED_TRACE(row.name);
        ScriptedServer server(Reply().send(row.reply).close());
        const auto reply = post(server.baseUrl());
        EXPECT_EQ(reply.has_value(), row.fate == Taken);
        EXPECT_EQ(reply.value_or(QString()), reply ? QString::fromLatin1(row.arrived) : QString());
        EXPECT_EQ(static_cast<int64_t>(probe(server.baseUrl())), row.size);
        for (const auto mode : {DownloadMode::Session, DownloadMode::Connection}) {
            writeFile(path, "old+");
            EXPECT_EQ(download(server.baseUrl(), path, mode) == "file", row.fate == Taken);
            EXPECT_EQ(readFile(path), "old+" + row.arrived);
        }
        server.setHandler([](const ScriptedServer::Request &) { return Reply::whole(200, "ok"); });
        EXPECT_EQ(post(server.baseUrl()), QStringLiteral("ok")) << "The next exchange is healthy.";
    }
}

// The server goes on and on; what is not taken is not waited for either.
TEST(HostileReplies, ToACommandAreBounded)
{
    const QByteArray many(3 << 20, 'x');
    for (const QByteArray &reply :
         {"HTTP/1.1 200 OK" + end + many, chunks("fffffff\r\n" + many),
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: deflate" + end + qCompress(many).mid(4)}) {
        ScriptedServer server(Reply().send(reply).wait(std::make_shared<Gate>()));
        const auto transport = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
        EXPECT_EQ(transport->DoPost(QStringLiteral("cmd=gettoken"), std::nullopt), std::nullopt);
        EXPECT_EQ(nameOf(*transport->failure()), network(NetworkError::ReplyTooLarge));
        EXPECT_EQ(static_cast<int64_t>(probe(server.baseUrl())), -1);
    }
}

// A server that says it keeps a connection, and then ends it or goes on talking.
TEST(HostileReplies, OnAKeptConnectionAreNotTakenForTheNext)
{
    const Reply first = Reply::whole(200, "first", {"Connection: keep-alive"});
    const QByteArray unasked = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nevil";
    const auto later = std::make_shared<Gate>();
    const auto sent = std::make_shared<Gate>();
    const Reply lies[] = {
        Reply(first).close(),
        Reply(first).reset(),
        Reply().send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nfirst" + unasked),
        Reply(first).wait(later).send(unasked).wait(sent),
        first,
    };
    for (const Reply &lie : lies) {
        SCOPED_TRACE(&lie - lies);
        std::atomic<int> onTheFirst = 0;
        ScriptedServer server([&](const ScriptedServer::Request &request) {
            if (request.connection != 1)
                return Reply::whole(200, "second");
            return onTheFirst++ == 0 ? lie : Reply().reset();
        });
        EXPECT_EQ(post(server.baseUrl()), QStringLiteral("first"));
        if (&lie == &lies[3]) {
            later->open();
            EXPECT_TRUE(waitFor([&] { return sent->isReached(); }));
        }
        EXPECT_EQ(post(server.baseUrl()), QStringLiteral("second"));
    }
}
