#include "ControllerTest.h"

#include "../../platform/files/LockedFile.h"
#include "../support/LogCapture.h"

#include <QCryptographicHash>

#include <algorithm>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

std::shared_ptr<CheckUpdateResponse> replyWith(const std::optional<QString> &digest)
{
    auto reply = std::make_shared<CheckUpdateResponse>();
    reply->setZVMD5(digest);
    return reply;
}

bool isOpen(const QString &path)
{
    const auto all = QDir(u"/proc/self/fd"_s).entryInfoList(QDir::Files | QDir::System);
    return std::any_of(all.begin(), all.end(),
                       [&](const QFileInfo &open) { return open == QFileInfo(path); });
}

/// The end of a download, without the download.
class Completion : public ControllerTest
{
public:
    void setUp(Host *delegate)
    {
        startAfresh();
        controller->setMLastCheckUpdateResponse(replyWith(digest));
        controller->setDelegate(delegate);
        place(temporary, good);
    }

    /// On a thread of its own, as in session mode.
    void finish(const QString &path) const
    {
        std::thread([&] { controller->downloadFinishWithFilePath(path); }).join();
        EXPECT_EQ(host.heard, QStringList()) << "inside the call";
    }
};

TEST_F(Completion, KeepsOnlyWhatHasTheDigestOfTheLatestReply)
{
    const std::pair<std::shared_ptr<CheckUpdateResponse>, bool> replies[] = {
        {replyWith(digest.left(16).toLower() + digest.mid(16)), true},
        {replyWith(Offer::digestOf(wrong)), false},
        {replyWith(digest.left(31)), false},
        {replyWith(QString()), false},
        {replyWith(std::nullopt), false},
        {nullptr, false}};
    for (const auto &[reply, isGood] : replies)
        for (Host *delegate : {&host, static_cast<Host *>(nullptr)})
            for (const Content &image : {Content(), Content("earlier")}) {
                SCOPED_TRACE(qPrintable(reply ? reply->debugDescription() : u"no reply"_s));
                setUp(delegate);
                place(diskImage, image);
                controller->setMLastCheckUpdateResponse(reply);
                const QVariantMap preferences = storedPreferences();
                finish(temporary);
                runMainQueue();
                const bool isReady = isGood && delegate;
                EXPECT_EQ(contentOf(temporary), isGood && !delegate ? Content(good) : std::nullopt);
                EXPECT_EQ(contentOf(diskImage), isReady && !image ? Content(good) : image);
                EXPECT_EQ(host.heard, isReady ? QStringList(diskImage) : QStringList());
                EXPECT_EQ(storedPreferences(), preferences);
            }
}

TEST_F(Completion, NotifiesFromTheMainQueueWhoeverIsTheDelegateThen)
{
    int calls = 0;
    auto later = std::make_unique<Host>();
    later->whenTold = [&] { ++calls; };
    setUp(&host);
    controller->downloadFinishWithFilePath(temporary);
    controller->setDelegate(later.get());
    EXPECT_EQ(calls, 0) << "inside the call";
    runMainQueue();
    EXPECT_EQ(calls, 1);

    setUp(later.get());
    finish(temporary);
    later.reset();
    runMainQueue();
    EXPECT_EQ(calls, 1) << "of a delegate that has been destroyed";
    EXPECT_EQ(host.heard, QStringList());
    place(temporary, good);
    finish(temporary);
    EXPECT_EQ(contentOf(temporary), good) << "as without a delegate";
}

TEST_F(Completion, KeepsTheControllerUntilTheHostHasBeenTold)
{
    setUp(&host);
    finish(temporary);
    const std::weak_ptr<ZVUpdateProc> watched = controller;
    controller.reset();
    EXPECT_FALSE(watched.expired());
    runMainQueue();
    EXPECT_EQ(host.heard, QStringList(diskImage));
    EXPECT_TRUE(watched.expired());
}

TEST_F(Completion, HasClosedTheFileWhenTheHostIsTold)
{
    setUp(&host);
    controller->setDebugMode(true);
    host.whenTold = [this] { EXPECT_FALSE(isOpen(diskImage)) << "It could not be started."; };
    // The host may be told before the call returns.
    const auto former = qInstallMessageHandler([](auto, auto &, auto &) { runMainQueue(); });
    controller->downloadFinishWithFilePath(temporary);
    qInstallMessageHandler(former);
    EXPECT_EQ(host.heard, QStringList(diskImage));
}

TEST_F(Completion, NotifiesForAControllerThatNobodySharesWhileItIsThere)
{
    for (const bool isThere : {true, false}) {
        setUp(nullptr);
        auto unshared = std::make_unique<ZVUpdateProc>();
        unshared->setMLastCheckUpdateResponse(replyWith(digest));
        unshared->setDelegate(&host);
        unshared->downloadFinishWithFilePath(temporary);
        if (!isThere)
            unshared.reset();
        runMainQueue();
        EXPECT_EQ(host.heard, isThere ? QStringList(diskImage) : QStringList());
    }
}

TEST_F(Completion, LeavesAFileThatAnotherWriterHasLockedToTheNextCheck)
{
    setUp(&host);
    const ZVPlatform::LockedFile halted(temporary);
    const LogCapture log;
    finish(temporary);
    runMainQueue();
    EXPECT_TRUE(log.lines().value(0).startsWith(u"Another process has the file;"));
    EXPECT_EQ(contentOf(temporary), good);
    EXPECT_EQ(host.heard, QStringList());
}

TEST_F(Completion, OfALargeFileEndsWithTheController)
{
    // Nor is a file announced that has the final name and is not what was offered.
    for (const QString &large : {temporary, diskImage}) {
        setUp(&host);
        place(large, good);
        ASSERT_TRUE(QFile::resize(large, Q_INT64_C(4'000'000'000)));
        controller->mLastCheckUpdateResponse()->setRelease(
            ReleaseStatement{.sha256 = QCryptographicHash::hash(good, QCryptographicHash::Sha256),
                             .size = static_cast<quint64>(good.size())});
        UpdateLogicFunc client;
        client.setDelegate(controller.get());
        std::thread completion([&] { client.downloadFinishWithFilePath(temporary); });
        EXPECT_TRUE(waitFor([&] { return isOpen(large); }, Meanwhile::Sleep));
        controller.reset();
        completion.join();
        EXPECT_TRUE(QFileInfo::exists(temporary)) << "The next check deals with it.";
        EXPECT_EQ(host.heard, QStringList());
    }
}

} // namespace
