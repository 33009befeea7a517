#include "ControllerTest.h"

#include <QElapsedTimer>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// Downloads in both modes, with the main thread's event loop running.
class Lifetime : public ControllerTest, public InBothModes
{
public:
    /// Starts a download that comes halfway.
    std::shared_ptr<UpdateLogicFunc> startHalfway()
    {
        offer.gate = std::make_shared<Gate>();
        service.setOffer(offer);
        EXPECT_EQ(check(), 1);
        EXPECT_TRUE(waitFor([&] { return contentOf(temporary) == half; }));
        EXPECT_EQ(contentOf(diskImage), std::nullopt);
        return controller->mCurrentDownloadUpdateLogic();
    }

    /// Lets it come to its end.
    void finish(const std::shared_ptr<UpdateLogicFunc> &client) const
    {
        offer.gate->open();
        EXPECT_TRUE(waitFor([&] { return client->doCheckDownloadStop(); }));
        runMainQueue();
    }

    void expectSaved(const Content &image, const Content &part) const
    {
        EXPECT_EQ(contentOf(diskImage), image);
        EXPECT_EQ(contentOf(temporary), part);
        EXPECT_EQ(host.heard, image ? QStringList(diskImage) : QStringList());
    }

    const QByteArray half = good.left(good.size() / 2);
    const QString resumed = u"GET cmd=download&tk=T&fn=P_2.exe bytes=%1-"_s.arg(half.size());
    Offer offer;
};

TEST_P(Lifetime, AReplacedDownloadIsVerifiedAgainstTheNewerReply)
{
    const std::pair<Offer, bool> newerOffers[] = {
        {{.tokenOk = false}, true},
        {{.digest = Offer::digestOf(wrong), .tokenOk = false}, false},
        {{.ok = false}, false}};
    for (const auto &[newer, isGood] : newerOffers) {
        startAfresh();
        const std::weak_ptr<UpdateLogicFunc> replaced = startHalfway();
        service.setOffer(newer);
        EXPECT_EQ(check(), 3);
        ASSERT_FALSE(replaced.expired()) << "while its download is running";
        EXPECT_NE(controller->mCurrentDownloadUpdateLogic(), replaced.lock());
        finish(replaced.lock());
        expectSaved(isGood ? Content(good) : std::nullopt, std::nullopt);
        check();
        EXPECT_TRUE(replaced.expired()) << "after its download has ended";
    }
}

TEST_P(Lifetime, AReplacedDownloadOutlivesTheController)
{
    const auto replaced = startHalfway();
    service.setOffer({.tokenOk = false});
    EXPECT_EQ(check(), 3);
    controller.reset();
    finish(replaced);
    expectSaved(std::nullopt, good);
}

TEST_P(Lifetime, TwoDownloadsOfOneFileDoNotSpoilIt)
{
    const auto first = startHalfway();
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(waitForDownload());
    EXPECT_EQ(service.requests().constLast(), resumed);
    finish(first);
    expectSaved(good, std::nullopt);
}

TEST_P(Lifetime, DestroyingTheControllerStopsItsDownloadAtOnce)
{
    const std::weak_ptr<UpdateLogicFunc> client = startHalfway();
    QElapsedTimer timer;
    timer.start();
    controller.reset();
    EXPECT_LT(timer.elapsed(), 15000) << "while the service keeps silent";
    EXPECT_TRUE(client.expired());
    EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
    expectSaved(std::nullopt, half);

    controller = newController();
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(waitForDownload());
    EXPECT_EQ(service.requests().constLast(), resumed);
    expectSaved(good, std::nullopt);
}

TEST_P(Lifetime, WhatIsTakenAwayMeanwhileIsFetchedAgain)
{
    const auto remove = [this] { EXPECT_TRUE(QDir(saveDirectory).removeRecursively()); };
    const std::function<void()> acts[] = {
        remove,
        [&] {
            remove();
            writeFile(saveDirectory, "in the place of the directory");
        },
        [&] { QDir().rename(saveDirectory, saveDirectory + u".moved"_s); },
        [&] { EXPECT_TRUE(QFile::resize(temporary, 1000)); },
    };
    for (const auto &act : acts) {
        SCOPED_TRACE(&act - acts);
        startAfresh();
        const auto client = startHalfway();
        act();
        finish(client);
        EXPECT_EQ(contentOf(diskImage).value_or(good), good);
        QFile::remove(saveDirectory);
        for (int checks = 0; checks < 2 && contentOf(diskImage) != good; ++checks) {
            check();
            EXPECT_TRUE(waitForDownload());
        }
        EXPECT_EQ(contentOf(diskImage), good);
    }
}

INSTANTIATE_TEST_SUITE_P(, Lifetime, bothModes, testing::PrintToStringParamName());

// Whether the end of the application is that of a download whose client has been replaced. To be
// asked in a process of its own.
bool applicationEndsReplacedDownload()
{
    UpdateService service;
    const auto gate = std::make_shared<Gate>();
    service.setOffer({.gate = gate});
    const QTemporaryDir directory;
    ZVUpdateProc controller;
    controller.setProductID(u"P"_s, u"1"_s, directory.path());
    controller.updateWithDelegate(nullptr);
    const std::weak_ptr replaced = controller.mCurrentDownloadUpdateLogic();
    waitFor([&] { return gate->isReached(); }, Meanwhile::Sleep); // Another offer has no gate.
    service.setOffer({.tokenOk = false});
    controller.updateWithDelegate(nullptr);
    const bool isRunning = !replaced.expired();
    QCoreApplication::instance()->~QCoreApplication();
    return isRunning && replaced.expired() && libraryThreads() == 0;
}

// Such tests run first, while there is only one thread.
TEST(ReplacedDownloadDeathTest, EndsWithTheApplication)
{
    EXPECT_EXIT(_exit(applicationEndsReplacedDownload() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(SharedController, IsOneUntilItIsReleased)
{
    ZVUpdateProc::releaseSharedZVUpdateProc();
    const std::weak_ptr<ZVUpdateProc> first = ZVUpdateProc::getSharedZVUpdateProc();
    EXPECT_EQ(ZVUpdateProc::getSharedZVUpdateProc(), first.lock());
    first.lock()->setProductID(u"P"_s, u"1"_s, u"/"_s);
    ZVUpdateProc::releaseSharedZVUpdateProc();
    EXPECT_TRUE(first.expired());
    EXPECT_EQ(ZVUpdateProc::getSharedZVUpdateProc()->updateWithDelegate(nullptr), 4);
    ZVUpdateProc::releaseSharedZVUpdateProc();
}

TEST_F(ControllerTest, ForwardsTheUsersChoice)
{
    controller->infoWindowClosedActions(1);
    place(diskImage, good);
    EXPECT_FALSE(controller->infoWindowInstalls(diskImage)) << "without a host";
    controller->setDelegate(&host);
    EXPECT_FALSE(controller->infoWindowInstalls(diskImage)) << "as it has not said that it does";
    for (const uint64_t action : {uint64_t(1), uint64_t(0), uint64_t(2), ~uint64_t(0)})
        controller->infoWindowClosedActions(action);
    EXPECT_EQ(host.heard, QStringList({u"update"_s, u"cancel"_s}));
}

} // namespace
