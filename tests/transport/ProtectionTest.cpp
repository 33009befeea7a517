#include "support/Exchanges.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"
#include "support/Testing.h"

using testing::StartsWith;
using Reply = ScriptedServer::Reply;

namespace {

const QByteArray content = QByteArray(300000, 'f') + "end";
// Port 1 is reserved for a service that nobody runs; a proxy need not know that.
const QString refusingPeer = QStringLiteral("127.0.0.1:1");

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
    const std::string outcome = download(url, path);
    return {outcome, readFile(path)};
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
    const ScriptedServer server(serve, Certificate::Good);
    expectAllGoesRight(server.baseUrl());
    ASSERT_EQ(server.requests().size(), 3u);
    EXPECT_EQ(server.requests().back().header("Range"), "bytes=150001-");
}

TEST(Protection, RefusesAServerThatIsNotTheOneMeant)
{
    for (const auto certificate :
         {Certificate::Expired, Certificate::Untrusted, Certificate::OfAnotherHost}) {
        SCOPED_TRACE(static_cast<int>(certificate));
        const ScriptedServer server(serve, certificate);
        EXPECT_EQ(answerOf(server.baseUrl()),
                  "connect error: No secure connection to the server could be made.");
        const auto transport = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
        EXPECT_EQ(transport->getFileSize(QStringLiteral("cmd=gettoken")), 0u);
        EXPECT_EQ(transport->failure()->code,
                  static_cast<int>(ZVPlatform::NetworkError::CertificateRefused));
        EXPECT_EQ(resume(server.baseUrl()),
                  std::pair(std::string("certificate-refused"), content.first(content.size() / 2)));
        EXPECT_TRUE(server.requests().empty());
    }
}

TEST(Protection, IsNotLeftForARedirectButEntered)
{
    const auto redirect = [](const ScriptedServer::Request &request) {
        return Reply::whole(307, {}, {"Location: " + request.target.mid(5)});
    };
    const auto from = [](const ScriptedServer &server, const ScriptedServer &to) {
        return server.url(QStringLiteral("/?to=") + to.url(QStringLiteral("/?dt=")));
    };
    const ScriptedServer plain(redirect);
    const ScriptedServer protectedOne(redirect, Certificate::Good);
    const ScriptedServer plainTarget(serve);
    const ScriptedServer protectedTarget(serve, Certificate::Good);
    const ScriptedServer odd(
        [](const auto &) { return Reply().send("no HTTP at all\r\n\r\n").close(); },
        Certificate::Good);
    EXPECT_EQ(answerOf(from(plain, odd)), "connect error: The server's reply is not valid HTTP.");
    EXPECT_EQ(answerOf(from(plain, protectedTarget)), "reply");
    EXPECT_EQ(answerOf(from(protectedOne, protectedTarget)), "reply");
    EXPECT_THAT(answerOf(from(protectedOne, plainTarget)), StartsWith("connect error: "));
    EXPECT_EQ(resume(from(protectedOne, plainTarget)).first, "http-status 307");
    EXPECT_TRUE(plainTarget.requests().empty());
}

TEST(ProxyOfTheEnvironment, IsUsed)
{
    const ScriptedServer server(serve);
    {
        const Proxy proxy("http_proxy", server.address());
        expectAllGoesRight(QStringLiteral("http://%1/?dt=").arg(refusingPeer));
        for (const ScriptedServer::Request &request : server.requests())
            EXPECT_THAT(request.target.toStdString(), StartsWith("http://127.0.0.1:1/?dt="));
    }
    const ScriptedServer tunnel(serve, Certificate::Good, true);
    const Proxy proxy("https_proxy", tunnel.address());
    expectAllGoesRight(QStringLiteral("https://%1/?dt=").arg(refusingPeer));
    EXPECT_EQ(tunnel.requests().front().target, "127.0.0.1:1");
    EXPECT_THAT(tunnel.requests().back().target.toStdString(), StartsWith("/?dt="));
}

TEST(ProxyOfTheEnvironment, ThatIsOfNoUseIsAFailure)
{
    ScriptedServer server(Reply::whole(407, "Who are you?", {"Proxy-Authenticate: Basic realm=x"}));
    const Proxy http("http_proxy", server.address());
    const Proxy https("https_proxy", server.address());
    const QString url = QStringLiteral("http://%1/?dt=").arg(refusingPeer);
    EXPECT_EQ(answerOf(url), "Who are you?") << "The status of a check's reply does not count.";
    EXPECT_EQ(resume(url).first, "proxy-refused 407");

    const QString protectedUrl = QStringLiteral("https://%1/?dt=").arg(refusingPeer);
    EXPECT_EQ(answerOf(protectedUrl), "connect error: The proxy refused to connect to the server.");
    EXPECT_EQ(resume(protectedUrl).first, "proxy-refused");
    ASSERT_EQ(server.requests().size(), 4u);
    EXPECT_EQ(server.requests().back().method, "CONNECT");

    const Proxy nobody("http_proxy", QString(64, u'x')); // No name server is asked for that.
    EXPECT_EQ(answerOf(url), "connect error: The server's name could not be found.");
}
