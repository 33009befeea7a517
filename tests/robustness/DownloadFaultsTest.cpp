#include "platform/files/Files.h"
#include "support/Campaign.h"
#include "support/Exchanges.h"
#include "support/FaultRelay.h"
#include "support/ScriptedServer.h"
#include "support/TestFiles.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <algorithm>

using namespace ZVPlatform;
using testing::ElementsAre;
using Fault = FaultRelay::Fault;
using Reply = ScriptedServer::Reply;

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

/// Downloads through a relay, or from a server that answers wrongly, to a directory that is looked
/// at afterwards.
class DownloadFaults : public testing::TestWithParam<DownloadMode>
{
protected:
    DownloadFaults() { QDir(directory_.path()).mkdir(QStringLiteral("save")); }

    void TearDown() override
    {
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
        EXPECT_EQ(download(server_.baseUrl()), isComplete ? "HTTP Error 416" : "file");
        EXPECT_TRUE(readFile(path_) == content_);
    }

    /// What passes when nothing is spoiled.
    struct Lengths
    {
        qsizetype request, header, reply;
    };
    Lengths lengths()
    {
        const FaultRelay relay(server_.baseUrl());
        EXPECT_EQ(download(relay.baseUrl()), "file");
        const QByteArray reply = relay.received(toClient);
        return {relay.received(toServer).size(), reply.indexOf("\r\n\r\n") + 4, reply.size()};
    }

    const QTemporaryDir directory_;
    const QString path_ = directory_.filePath(QStringLiteral("save/P1_2103.bin"));
    const QByteArray content_ = fileOf4KiB();
    /// What the delegate hears of a download that breaks in the body.
    const std::string broken_ = GetParam() == DownloadMode::Session
                                    ? network(NetworkError::ConnectionLost)
                                    : "HTTP Error 200";
    ScriptedServer server_{
        [this](const ScriptedServer::Request &request) { return Reply::file(request, content_); }};
};

INSTANTIATE_TEST_SUITE_P(, DownloadFaults,
                         testing::Values(DownloadMode::Session, DownloadMode::Connection),
                         testing::PrintToStringParamName());

} // namespace

// Of the request and of the reply: cut off there, in order or not, or split there.
TEST_P(DownloadFaults, AtEveryByteAreResumedOrMakeNoDifference)
{
    const Lengths length = lengths();
    int tried = 0;
    for (const auto &[direction, last] :
         {std::pair(toServer, length.request - 1), {toClient, length.reply}}) {
        const int rounds = Campaign::rounds(static_cast<int>(last) + 1, 20);
        for (int i = 0; i < rounds; ++i)
            for (const auto &fault :
                 {&FaultRelay::finish, &FaultRelay::reset, &FaultRelay::split}) {
                const qsizetype at = last * i / (rounds - 1);
                SCOPED_TRACE(testing::Message() << "direction " << direction << " at " << at);
                QFile::remove(path_);
                const bool isWhole = fault == &FaultRelay::split || at == length.reply;
                const qsizetype body = direction == toServer ? -1 : at - length.header;
                EXPECT_EQ(downloadThrough(fault(direction, at)), isWhole    ? "file"
                                                                 : body < 0 ? "HTTP Error 0"
                                                                            : broken_);
                const qsizetype arrived = std::max<qsizetype>(body, 0);
                EXPECT_TRUE(readFile(path_) == (isWhole ? content_ : content_.left(arrived)));
                expectResumingSucceeds();
                ++tried;
            }
    }
    Campaign::tried(tried);
}
