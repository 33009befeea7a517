#include "ControllerTest.h"

#include "../../platform/Files.h"
#include "../support/TestFiles.h"
#include "../support/WaitFor.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

std::shared_ptr<CheckUpdateResponse> replyWith(const std::optional<QString> &digest)
{
    auto reply = std::make_shared<CheckUpdateResponse>();
    reply->setZVMD5(digest);
    return reply;
}

/// How many times the process has a file open.
qsizetype descriptorsOf(const QString &path)
{
    const auto all = QDir(u"/proc/self/fd"_s).entryInfoList(QDir::Files | QDir::System);
    return std::count_if(all.begin(), all.end(), [&](const QFileInfo &descriptor) {
        return descriptor.canonicalFilePath() == QFileInfo(path).canonicalFilePath();
    });
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
        {replyWith(digest), true},
        {replyWith(digest.toLower()), true},
        {replyWith(digest.left(16).toLower() + digest.mid(16)), true},
        {replyWith(Offer::digestOf(wrong)), false},
        {replyWith(digest.left(31)), false},
        {replyWith(QString()), false},
        {replyWith(std::nullopt), false},
        {nullptr, false}};
    for (const auto &[reply, isGood] : replies) {
        for (Host *delegate : {&host, static_cast<Host *>(nullptr)}) {
            SCOPED_TRACE(qPrintable(reply ? reply->debugDescription() : u"no reply"_s));
            setUp(delegate);
            controller->setMLastCheckUpdateResponse(reply);
            const QVariantMap preferences = storedPreferences();
            finish(temporary);
            runMainQueue();
            const bool isReady = isGood && delegate;
            EXPECT_EQ(contentOf(temporary), isGood && !delegate ? Content(good) : std::nullopt);
            EXPECT_EQ(contentOf(diskImage), isReady ? Content(good) : std::nullopt);
            EXPECT_EQ(host.heard, isReady ? QStringList(diskImage) : QStringList());
            EXPECT_EQ(storedPreferences(), preferences);
        }
    }
}

TEST_F(Completion, LeavesADiskImageThatIsThereAlone)
{
    setUp(&host);
    place(diskImage, "earlier");
    finish(temporary);
    runMainQueue();
    EXPECT_EQ(contentOf(diskImage), "earlier");
    EXPECT_EQ(contentOf(temporary), std::nullopt);
    EXPECT_EQ(host.heard, QStringList(diskImage));
}

TEST_F(Completion, ExchangesTheLastExtensionOnly)
{
    for (const QString &name : {u"P.x_1.2.3"_s, u"P_2.bin"_s, u".bin"_s}) {
        setUp(&host);
        place(saved(name + u".bin"_s), good);
        finish(saved(name + u".bin"_s));
        runMainQueue();
        EXPECT_EQ(contentOf(saved(name + u".dmg"_s)), good);
        EXPECT_EQ(host.heard, QStringList(saved(name + u".dmg"_s)));
    }
}

TEST_F(Completion, NotifiesFromTheMainQueueWhoeverIsTheDelegateThen)
{
    for (const bool hasDelegate : {true, false}) {
        Host later;
        setUp(&host);
        controller->downloadFinishWithFilePath(temporary);
        controller->setDelegate(hasDelegate ? &later : nullptr);
        EXPECT_EQ(later.heard, QStringList()) << "inside the call";
        runMainQueue();
        EXPECT_EQ(host.heard, QStringList());
        EXPECT_EQ(later.heard, hasDelegate ? QStringList(diskImage) : QStringList());
    }
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

TEST_F(Completion, DoesNotCallADelegateThatHasBeenDestroyed)
{
    auto delegate = std::make_unique<Host>();
    bool wasCalled = false;
    delegate->whenTold = [&] { wasCalled = true; };
    setUp(delegate.get());
    finish(temporary);
    delegate.reset();
    runMainQueue();
    EXPECT_FALSE(wasCalled);

    place(temporary, good);
    controller->infoWindowClosedActions(1);
    finish(temporary);
    EXPECT_EQ(contentOf(temporary), good) << "as without a delegate";
}

TEST_F(Completion, WaitsForWhoeverIsAppendingToTheFile)
{
    setUp(&host);
    place(temporary, good.left(1000));
    auto appending = std::make_unique<ZVPlatform::FileGuard>(temporary);
    std::atomic<bool> done = false;
    std::thread completion([&] {
        controller->downloadFinishWithFilePath(temporary);
        done = true;
    });
    EXPECT_TRUE(waitFor([&] { return done || descriptorsOf(temporary) == 2; }));
    writeFile(temporary, good);
    appending.reset();
    completion.join();
    EXPECT_EQ(contentOf(diskImage), good);
}

TEST_F(Completion, IsWaitedForByTheControllersEnd)
{
    setUp(&host);
    UpdateLogicFunc client;
    client.setDelegate(controller.get());
    auto verifying = std::make_unique<ZVPlatform::FileGuard>(temporary);
    std::thread completion([&] { client.downloadFinishWithFilePath(temporary); });
    EXPECT_TRUE(waitFor([&] { return descriptorsOf(temporary) == 2; }));
    std::thread releaser([&, watched = std::weak_ptr(controller)] {
        EXPECT_TRUE(waitFor([&] { return watched.expired(); }, Meanwhile::Sleep));
        verifying.reset();
    });
    controller.reset();
    EXPECT_EQ(contentOf(diskImage), good);
    releaser.join();
    completion.join();
    runMainQueue();
    EXPECT_EQ(host.heard, QStringList());
}

} // namespace
