#include "OneDownload.h"
#include "platform/files/Files.h"
#include "support/Campaign.h"
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

const std::string lost = network(NetworkError::ConnectionLost);

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
        EXPECT_EQ(download(server_.baseUrl()), isComplete ? "HTTP 416" : "file");
        EXPECT_TRUE(readFile(path_) == content_);
    }

    /// What the delegate hears of an error after a success status.
    std::string after(int status, const std::string &inSession) const
    {
        return GetParam() == DownloadMode::Session ? inSession : "HTTP " + std::to_string(status);
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
    list.reserve(static_cast<size_t>(rounds));
    for (int i = 0; i < rounds; ++i)
        list.push_back(last * i / (rounds - 1));
    return list;
}

} // namespace

TEST_P(DownloadFaults, CutAtEveryByteOfTheReplyIsResumed)
{
    const Lengths length = lengths();
    int tried = 0;
    for (const auto &cut : {&FaultRelay::finish, &FaultRelay::reset})
        for (const qsizetype at : places(length.reply, 40)) {
            SCOPED_TRACE(at);
            QFile::remove(path_);
            const std::string report = downloadThrough(cut(toClient, at));
            EXPECT_EQ(report, at < length.header  ? "HTTP 0"
                              : at < length.reply ? after(200, lost)
                                                  : "file");
            const qsizetype arrived = std::max<qsizetype>(at - length.header, 0);
            EXPECT_TRUE(readFile(path_) == content_.left(arrived));
            expectResumingSucceeds();
            ++tried;
        }
    Campaign::tried(tried);
}

TEST_P(DownloadFaults, CutAtEveryByteOfTheRequestChangesNothing)
{
    const QByteArray before = content_.left(1000);
    writeFile(path_, before);
    int tried = 0;
    for (const auto &cut : {&FaultRelay::finish, &FaultRelay::reset})
        for (const qsizetype at : places(lengths().request - 1, 10)) {
            SCOPED_TRACE(at);
            writeFile(path_, before);
            EXPECT_EQ(downloadThrough(cut(toServer, at)), "HTTP 0");
            EXPECT_TRUE(readFile(path_) == before);
            ++tried;
        }
    expectResumingSucceeds();
    Campaign::tried(tried);
}

TEST_P(DownloadFaults, SplitAtAnyByteIsTheSame)
{
    const Lengths length = lengths();
    int tried = 0;
    for (const auto &[direction, size] :
         {std::pair(toServer, length.request - 1), std::pair(toClient, length.reply - 1)})
        for (const qsizetype at : places(size, 10)) {
            SCOPED_TRACE(at);
            QFile::remove(path_);
            EXPECT_EQ(downloadThrough(FaultRelay::split(direction, at)), "file");
            EXPECT_TRUE(readFile(path_) == content_);
            ++tried;
        }
    Campaign::tried(tried);
}
