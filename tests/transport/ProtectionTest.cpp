#include "support/Exchanges.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"
#include "support/TestFiles.h"
#include "support/TlsRelay.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>

using testing::IsEmpty;
using testing::StartsWith;
using Reply = ScriptedServer::Reply;

namespace {

const QString command = QStringLiteral("cmd=gettoken");
const QByteArray content = QByteArray(300000, 'f') + "end";
// Port 1 is reserved for a service that nobody runs; a proxy need not know that.
const QString unreachable = QStringLiteral("127.0.0.1:1");

Reply serve(const ScriptedServer::Request &request)
{
    return request.method == "POST" ? Reply::whole(200, "reply") : Reply::file(request, content);
}

/// A check's answer; or, without one, the line that is logged about it.
std::string answerOf(const QString &url)
{
    const LogCapture log;
    const auto answer = post(url);
    return (answer ? *answer : log.lines().join(QLatin1Char('\n'))).toStdString();
}

/// How a download ends that has the first half of the file already, and what the file holds then.
std::pair<std::string, QByteArray> resume(const QString &url)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("P1_2103.bin"));
    writeFile(path, content.first(content.size() / 2));
    const std::string report = OneDownload(url, path).report();
    return {report, readFile(path)};
}

void expectAllGoesRight(const QString &url)
{
    EXPECT_EQ(answerOf(url), "reply");
    EXPECT_EQ(probe(url), content.size());
    EXPECT_EQ(resume(url), std::pair(std::string("file"), content));
}

/// Sets a variable of the environment for as long as it lives.
class Proxy
{
public:
    Proxy(const char *variable, const QString &address) : variable_(variable)
    {
        qputenv(variable_, "http://" + address.toLatin1());
    }
    ~Proxy() { qunsetenv(variable_); }

    Proxy(const Proxy &) = delete;
    Proxy &operator=(const Proxy &) = delete;

private:
    const char *const variable_;
};

} // namespace

TEST(Protection, HoldsForAllThreeKindsOfExchange)
{
    ScriptedServer server(serve);
    const TlsRelay tls(server.url());
    expectAllGoesRight(tls.baseUrl());
    ASSERT_EQ(server.requests().size(), 3u);
    EXPECT_EQ(server.requests().back().header("Range"), "bytes=150001-");
}

TEST(Protection, RefusesAServerThatIsNotTheOneMeant)
{
    ScriptedServer server(serve);
    for (const auto certificate :
         {TlsRelay::Expired, TlsRelay::Untrusted, TlsRelay::OfAnotherHost}) {
        SCOPED_TRACE(certificate);
        const TlsRelay tls(server.url(), certificate);
        EXPECT_EQ(answerOf(tls.baseUrl()),
                  "connect error: No secure connection to the server could be made.");
        const auto transport = HttpFunctionPost::getPost(tls.baseUrl(), nullptr);
        EXPECT_EQ(transport->getFileSize(command), 0u);
        EXPECT_EQ(transport->failure()->code,
                  static_cast<int>(ZVPlatform::NetworkError::CertificateRefused));
        EXPECT_EQ(resume(tls.baseUrl()),
                  std::pair(std::string("HTTP Error 0"), content.first(content.size() / 2)));
    }
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST(Protection, IsNotLeftForARedirectButEntered)
{
    ScriptedServer target(serve);
    const TlsRelay protectedTarget(target.url());
    ScriptedServer server([&](const ScriptedServer::Request &request) {
        return Reply::whole(307, {}, {"Location: " + request.target.mid(5)});
    });
    const TlsRelay tls(server.url());
    const auto redirected = [](const QString &from, const QString &to) {
        return from + QStringLiteral("/?to=") + to + QStringLiteral("/?dt=");
    };
    const QString https = QStringLiteral("https://");
    EXPECT_EQ(answerOf(redirected(server.url(), https + protectedTarget.address())), "reply");
    EXPECT_EQ(answerOf(redirected(https + tls.address(), https + protectedTarget.address())),
              "reply");

    const size_t reached = target.requests().size();
    EXPECT_THAT(answerOf(redirected(https + tls.address(), target.url())),
                StartsWith("connect error: "));
    EXPECT_EQ(resume(redirected(https + tls.address(), target.url())).first, "HTTP Error 307");
    EXPECT_EQ(target.requests().size(), reached);
}

TEST(ProxyOfTheEnvironment, IsUsed)
{
    ScriptedServer server(serve);
    {
        const Proxy proxy("http_proxy", server.url().mid(7));
        expectAllGoesRight(QStringLiteral("http://%1/?dt=").arg(unreachable));
        for (const ScriptedServer::Request &request : server.requests())
            EXPECT_THAT(request.target.toStdString(), StartsWith("http://127.0.0.1:1/?dt="));
    }
    const TlsRelay tunnel(server.url(), TlsRelay::Good, TlsRelay::AsProxy);
    const Proxy proxy("https_proxy", tunnel.address());
    expectAllGoesRight(QStringLiteral("https://%1/?dt=").arg(unreachable));
    ASSERT_GT(tunnel.proxied(), 0);
    EXPECT_THAT(server.requests().back().target.toStdString(), StartsWith("/?dt="));
}

TEST(ProxyOfTheEnvironment, ThatIsOfNoUseIsAFailure)
{
    ScriptedServer server(Reply::whole(407, "Who are you?", {"Proxy-Authenticate: Basic realm=x"}));
    const Proxy http("http_proxy", server.url().mid(7));
    const Proxy https("https_proxy", server.url().mid(7));
    const QString url = QStringLiteral("http://%1/?dt=").arg(unreachable);
    EXPECT_EQ(answerOf(url), "Who are you?") << "The status of a check's reply does not count.";
    EXPECT_EQ(resume(url).first, "HTTP Error 407");

    const QString protectedUrl = QStringLiteral("https://%1/?dt=").arg(unreachable);
    EXPECT_EQ(answerOf(protectedUrl), "connect error: The proxy refused to connect to the server.");
    EXPECT_EQ(resume(protectedUrl).first, "HTTP Error 0");
    ASSERT_EQ(server.requests().size(), 4u);
    EXPECT_EQ(server.requests().back().method, "CONNECT");

    const Proxy nobody("http_proxy", QString(64, u'x')); // No name server is asked for that.
    EXPECT_EQ(answerOf(url), "connect error: The server's name could not be found.");
}
