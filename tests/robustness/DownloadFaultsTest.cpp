#include "platform/Files.h"
#include "platform/HttpExchange.h"
#include "support/Campaign.h"
#include "support/DownloadModes.h"
#include "support/FaultRelay.h"
#include "support/ScriptedServer.h"
#include "support/TestFiles.h"
#include "support/WaitFor.h"
#include "transport/HttpFunctionPost.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <algorithm>

using namespace ZVPlatform;
using testing::AnyOf;
using testing::ElementsAre;
using Fault = FaultRelay::Fault;
using Reply = ScriptedServer::Reply;
using std::chrono::milliseconds;

namespace {

constexpr auto toServer = FaultRelay::ToServer;
constexpr auto toClient = FaultRelay::ToClient;

// No byte stands where its neighbours could be taken for it.
QByteArray fileOf4KiB()
{
    QByteArray bytes;
    for (int i = 0; i < 2048; ++i)
        bytes.append(static_cast<char>(i / 256)).append(static_cast<char>(i));
    return bytes;
}

/// The error that a session passes on, by its number alone.
std::string network(NetworkError what)
{
    return "network " + std::to_string(static_cast<int>(what));
}

const std::string lost = network(NetworkError::ConnectionLost);

/// One download from its start to its end, and the report of it: "file", or the error.
class OneDownload : public HttpFunctionPostDelegate
{
public:
    OneDownload(const QString &baseUrl, const QString &path, DownloadMode mode)
        : mode_(mode), path_(path)
    {
        const DownloadModeSwitch chosen(mode);
        transport_->setMUrl(baseUrl);
        transport_->setDelegate(this);
        transport_->DoDownloadAsync(QStringLiteral("cmd=download&tk=T1&fn=P1_2103.exe"), path);
    }
    ~OneDownload() override
    {
        EXPECT_TRUE(isOver_) << "A download hangs.";
        retire();
    }

    std::string report()
    {
        isOver_ =
            waitFor([this] { return transport_->isThreadStop(); },
                    mode_ == DownloadMode::Session ? Meanwhile::Sleep : Meanwhile::RunEventLoop);
        return report_;
    }

private:
    void downloadFinishWithFilePath(const QString &path) override
    {
        report_ += path == path_ ? "file" : "another file";
    }
    void downloadFinishWithError(const Error &error) override
    {
        const bool isNetwork = error.domain == QLatin1String(networkErrorDomain);
        report_ += (isNetwork ? "network " : "HTTP ") + std::to_string(error.code);
    }

    const DownloadMode mode_;
    const QString path_;
    bool isOver_ = false;
    std::string report_; // The transfer's thread, until the transport says that it is over.
    const std::shared_ptr<HttpFunctionPost> transport_ = HttpFunctionPost::getPost({}, nullptr);
};

/// Downloads through a relay, or from a server that answers wrongly, to a directory that is looked
/// at afterwards.
class DownloadFaults : public testing::TestWithParam<DownloadMode>
{
protected:
    DownloadFaults() { QDir(directory_.path()).mkdir(QStringLiteral("save")); }

    void TearDown() override
    {
        HttpExchange::setIdleTimeout(std::chrono::seconds(60));
        EXPECT_THAT(QDir(directory_.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                    ElementsAre(QStringLiteral("save")));
        EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
    }

    std::string download(const QString &baseUrl)
    {
        return OneDownload(baseUrl, path_, GetParam()).report();
    }
    std::string downloadThrough(const Fault &fault)
    {
        const FaultRelay relay(server_.baseUrl(), fault);
        const std::string report = download(relay.baseUrl());
        EXPECT_TRUE(relay.hasHappened());
        return report;
    }

    /// What a partial or complete file becomes on a healthy path.
    void expectResumingSucceeds()
    {
        const bool isComplete = Files::size(path_) == static_cast<quint64>(content_.size());
        EXPECT_EQ(download(server_.baseUrl()), isComplete ? "HTTP 416" : "file");
        EXPECT_TRUE(readFile(path_) == content_);
    }

    /// What the delegate hears of an error after a success status.
    std::string after(int status, const std::string &inSession) const
    {
        return GetParam() == DownloadMode::Session ? inSession : "HTTP " + std::to_string(status);
    }

    /// The length of the header, and of all of the reply.
    std::pair<qsizetype, qsizetype> replyLength()
    {
        const FaultRelay relay(server_.baseUrl());
        EXPECT_EQ(download(relay.baseUrl()), "file");
        QFile::remove(path_);
        const QByteArray reply = relay.received(toClient);
        return {reply.indexOf("\r\n\r\n") + 4, reply.size()};
    }

    const QTemporaryDir directory_;
    const QString path_ = directory_.filePath(QStringLiteral("save/P1_2103.bin"));
    const QByteArray content_ = fileOf4KiB();
    ScriptedServer server_{
        [this](const ScriptedServer::Request &request) { return Reply::file(request, content_); }};
};

INSTANTIATE_TEST_SUITE_P(, DownloadFaults,
                         testing::Values(DownloadMode::Session, DownloadMode::Connection),
                         testing::PrintToStringParamName());

/// The places of a stream that are tried: all, or so many, the first and the last among them.
std::vector<qsizetype> places(qsizetype last, int inTheShortForm)
{
    const int rounds = Campaign::rounds(static_cast<int>(last) + 1, inTheShortForm);
    std::vector<qsizetype> list;
    for (int i = 0; i < rounds; ++i)
        list.push_back(last * i / (rounds - 1));
    return list;
}

} // namespace

TEST_P(DownloadFaults, CutAtEveryByteIsResumed)
{
    const auto [header, all] = replyLength();
    int tried = 0;
    for (const auto &cut : {&FaultRelay::finish, &FaultRelay::reset})
        for (const qsizetype at : places(all, 50)) {
            SCOPED_TRACE(at);
            QFile::remove(path_);
            const std::string report = downloadThrough(cut(toClient, at));
            const QByteArray arrived = readFile(path_);
            EXPECT_EQ(report, at < header ? "HTTP 0" : at < all ? after(200, lost) : "file");
            EXPECT_TRUE(arrived == content_.left(std::max<qsizetype>(at - header, 0)));
            expectResumingSucceeds();
            ++tried;
        }
    Campaign::tried(tried);
}
