#include "../controller/ControllerTest.h"

#include <atomic>
#include <iostream>
#include <random>
#include <thread>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// What hosts do at the same time, again and again, at moments of chance. Run under thread
/// sanitizer it finds what is not guarded; here, what crashes, hangs or leaves a wrong file.
class Races : public ControllerTest, public InBothModes
{
public:
    ~Races() override
    {
        // Whatever has happened: the next check brings the update, and in the end no thread is
        // left.
        controller = newController();
        for (int i = 0; i < 2 && contentOf(diskImage) != good; ++i) {
            check();
            waitForDownload();
        }
        EXPECT_EQ(contentOf(diskImage), good);
        check();
        controller.reset();
        EXPECT_TRUE(waitFor([] { return libraryThreads() == 0; }));
    }

    /// `./run torture` asks for the long form.
    static void repeat(const std::function<void()> &round)
    {
        const int rounds = qEnvironmentVariableIsEmpty("ZVUPDATE_TORTURE") ? 15 : 1000;
        for (int i = 0; i < rounds && !HasFailure(); ++i)
            round();
        std::cout << "[ variants ] " << rounds << '\n';
    }

    /// Lets up to so many microseconds pass, about the time that a download takes here.
    void letTimePass(int most)
    {
        const auto until =
            std::chrono::steady_clock::now() +
            std::chrono::microseconds(std::uniform_int_distribution<int>(0, most)(random_));
        while (std::chrono::steady_clock::now() < until)
            runMainQueue();
    }

    /// The files are what a download may leave at any moment.
    void expectSoundFiles() const
    {
        EXPECT_TRUE(good.startsWith(contentOf(temporary).value_or(QByteArray())));
        EXPECT_EQ(contentOf(diskImage).value_or(good), good);
    }

    std::shared_ptr<UpdateLogicFunc> startDownload()
    {
        place(temporary, std::nullopt);
        const auto client = std::make_shared<UpdateLogicFunc>();
        client->doStartDownload(u"T"_s, u"P_2.exe"_s, temporary);
        return client;
    }

private:
    std::minstd_rand random_; // Seeded alike each time.
};

INSTANTIATE_TEST_SUITE_P(, Races, bothModes, testing::PrintToStringParamName());

TEST_P(Races, StartAgainstStop)
{
    repeat([this] {
        const auto client = startDownload();
        std::thread stopper([&] {
            while (!client->doCheckDownloadStop()) {
                client->doStopDownload();
                client->doGetDownloadProgress();
            }
        });
        EXPECT_TRUE(waitFor([&] { return client->doCheckDownloadStop(); }));
        stopper.join();
        expectSoundFiles();
    });
}

TEST_P(Races, DestroyingTheDelegateAndTheControllerInEveryPhase)
{
    int most = 0; // First, before the download has begun.
    repeat([&] {
        startAfresh();
        auto shortLived = std::make_unique<Host>();
        EXPECT_EQ(controller->updateWithDelegate(shortLived.get()), 1);
        letTimePass(std::exchange(most, 4000));
        EXPECT_TRUE(shortLived->heard.isEmpty() || contentOf(diskImage) == good);
        shortLived.reset();
        letTimePass(1000);
        controller.reset();
        expectSoundFiles();
    });
}

TEST_P(Races, ChecksInTheBackgroundStoppedAndDestroyedInEveryPhase)
{
    repeat([this] {
        startAfresh();
        EXPECT_TRUE(controller->startCheck(ZVUpdateProc::CheckReason::AskedByUser, &host));
        letTimePass(8000);
        const bool isAskedAgain =
            controller->startCheck(ZVUpdateProc::CheckReason::Scheduled, &host);
        EXPECT_TRUE(!isAskedAgain || controller->isChecking());
        controller->stopUpdate();
        letTimePass(1000);
        controller.reset();
        expectSoundFiles();
    });
}

TEST_P(Races, DestroyingTheControllerInItsCall)
{
    repeat([this] {
        startAfresh();
        const std::weak_ptr<ZVUpdateProc> watched = controller;
        host.whenTold = [this] { controller.reset(); };
        EXPECT_EQ(check(), 1);
        EXPECT_TRUE(waitFor([&] { return watched.expired(); }));
        EXPECT_EQ(contentOf(diskImage), good);
    });
}

TEST_P(Races, ChecksOnThreadsWithoutAnEventLoop)
{
    repeat([this] {
        startAfresh();
        int64_t result = 0;
        std::thread checker([&] { result = check(); });
        checker.join(); // The main thread is as busy as can be meanwhile.
        EXPECT_EQ(result, 1);
        EXPECT_TRUE(waitForDownload());
        EXPECT_TRUE(waitFor([this] { return !host.heard.isEmpty(); }));
        EXPECT_EQ(contentOf(diskImage), good);
    });
}

TEST_P(Races, TwoChecksAtOnce)
{
    repeat([this] {
        startAfresh();
        const auto other = newController();
        for (const auto &second : {controller, other}) {
            std::atomic<int> checked = 0;
            const auto checkOnce = [&](const std::shared_ptr<ZVUpdateProc> &each) {
                each->updateWithDelegate(&host);
                ++checked;
            };
            std::thread one(checkOnce, controller);
            std::thread two(checkOnce, second);
            // A replaced download may have to be waited for, which the event loop brings to its
            // end.
            EXPECT_TRUE(waitFor([&] { return checked == 2; }));
            one.join();
            two.join();
            for (const auto &each : {controller, other}) {
                const auto client = each->mCurrentDownloadUpdateLogic();
                EXPECT_TRUE(waitFor([&] { return !client || client->doCheckDownloadStop(); }));
            }
            EXPECT_EQ(contentOf(diskImage).value_or(good), good);
        }
    });
}

} // namespace
