#include "platform/threads/MainQueue.h"
#include "platform/threads/RunLoop.h"
#include "platform/threads/SerialQueue.h"
#include "support/Testing.h"

#include <QCoreApplication>

#include <atomic>
#include <thread>
#include <vector>

#include <unistd.h>

using namespace ZVPlatform;
using testing::ElementsAre;

namespace {

// Whether the application object, when it goes, destroys a job that has not had its turn, without
// running it. To be asked in a process of its own.
bool applicationDropsItsJobs()
{
    bool hasRun = false;
    auto job = std::make_shared<int>();
    const std::weak_ptr<int> held = job;
    MainQueue::async([held = std::move(job), &hasRun] { hasRun = true; });
    QCoreApplication::instance()->~QCoreApplication();
    MainQueue::async([&hasRun] { hasRun = true; });
    return held.expired() && !hasRun;
}

} // namespace

TEST(SerialQueue, RunsItsJobsInOrderOnOneThreadAndFinishesThem)
{
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    {
        SerialQueue queue(QStringLiteral("A label of more than fifteen bytes"));
        for (int i = 0; i < 100; ++i)
            EXPECT_TRUE(queue.async([&, i] {
                order.push_back(i);
                threads.push_back(std::this_thread::get_id());
            }));
    } // Here it has run them all.
    ASSERT_EQ(order.size(), 100u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(std::count(threads.begin(), threads.end(), threads[0]), 100);
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(SerialQueue, MayGoInAJobOfItsOwn)
{
    std::atomic<bool> isLastOwner = false;
    std::atomic<bool> isGone = false;
    auto owner = std::make_shared<SerialQueue>(QStringLiteral("queue"));
    EXPECT_TRUE(owner->async([&, held = owner]() mutable {
        EXPECT_TRUE(waitFor([&] { return isLastOwner.load(); }, Meanwhile::Sleep));
        held.reset();
        isGone = true;
    }));
    owner.reset();
    isLastOwner = true;
    EXPECT_TRUE(waitFor([&] { return isGone.load(); }));
    EXPECT_TRUE(SerialQueue(QStringLiteral("next")).async([] {})); // Joins the thread left over.
}

TEST(MainQueue, RunsJobsInOrderInTheEventLoopOnly)
{
    std::vector<int> order;
    std::thread::id thread;
    MainQueue::async([&] {
        MainQueue::async([&] { order.push_back(3); });
        order.push_back(1);
        thread = std::this_thread::get_id();
    });
    std::thread([&] { MainQueue::async([&] { order.push_back(2); }); }).join();
    EXPECT_TRUE(order.empty());
    ASSERT_TRUE(waitFor([&] { return order.size() == 3; }));
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
    EXPECT_EQ(thread, std::this_thread::get_id());
}

// Such tests run first, while there is only one thread.
TEST(MainQueueDeathTest, DropsJobsWhenTheApplicationGoes)
{
    EXPECT_EXIT(_exit(applicationDropsItsJobs() ? 0 : 1), testing::ExitedWithCode(0),
                "no QCoreApplication");
}

TEST(RunLoop, EndsByConditionOrByTimeAndRunsEventsMeanwhile)
{
    using std::chrono::milliseconds;
    const auto begin = std::chrono::steady_clock::now();
    bool hasRun = false;
    MainQueue::async([&] { hasRun = true; });
    runCurrentRunLoop(std::chrono::hours(1), [] { return true; });
    EXPECT_FALSE(hasRun) << "Nothing to wait for.";
    runCurrentRunLoop(std::chrono::hours(1), [&] { return hasRun; });
    EXPECT_TRUE(hasRun);

    const auto never = [] { return false; };
    runCurrentRunLoop(milliseconds(20), never);
    std::thread([&] { runCurrentRunLoop(milliseconds(20), never); }).join();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(40));
}
