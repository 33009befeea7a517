#include "Worker.h"

#include "../Mutex.h"
#include "ApplicationEnd.h"

#include <utility>
#include <vector>

#include <pthread.h>

namespace ZVPlatform {

namespace {

// Threads whose workers were destroyed on themselves. They have nothing left to do but return.
class UnjoinedThreads
{
public:
    void add(std::thread thread)
    {
        const MutexLock lock(mutex_);
        threads_.push_back(std::move(thread));
    }

    void join()
    {
        std::vector<std::thread> threads;
        {
            const MutexLock lock(mutex_);
            threads.swap(threads_);
        }
        for (std::thread &thread : threads) {
            if (thread.get_id() == std::this_thread::get_id())
                add(std::move(thread));
            else
                thread.join();
        }
    }

private:
    Mutex mutex_;
    std::vector<std::thread> threads_ ZVUPDATE_GUARDED_BY(mutex_);
};

UnjoinedThreads &unjoinedThreads()
{
    static UnjoinedThreads &instance = []() -> UnjoinedThreads & {
        whenApplicationEnds([] { unjoinedThreads().join(); });
        return *new UnjoinedThreads;
    }();
    return instance;
}

void nameCurrentThread(const QString &label)
{
#ifdef __APPLE__
    pthread_setname_np(label.toUtf8().constData());
#else
    // Linux keeps 15 bytes of a thread's name and refuses longer ones.
    pthread_setname_np(pthread_self(), label.toUtf8().left(15).constData());
#endif
}

} // namespace

Worker::Worker(const QString &label, std::function<void()> body)
{
    unjoinedThreads().join();
    thread_ = std::thread([label, run = std::move(body)] {
        nameCurrentThread(label);
        run();
    });
}

Worker::~Worker()
{
    if (thread_.get_id() == std::this_thread::get_id())
        unjoinedThreads().add(std::move(thread_));
    else
        thread_.join();
}

} // namespace ZVPlatform
