#include "MainQueue.h"

#include "../Mutex.h"
#include "../settings/SystemLog.h"
#include "ApplicationEnd.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>

#include <deque>
#include <utility>

namespace ZVPlatform {

namespace {

Mutex mutex;

/// Runs one job upon each event that is posted to it. Lives on the application's thread, and no
/// longer than the application object: posting to that itself would race with its destruction.
class Receiver : public QObject
{
public:
    // Jobs are kept here and not in the events, so that they are destroyed where they run: of an
    // event that carries one, the poster may keep a share until the job is over.
    std::deque<std::function<void()>> jobs ZVUPDATE_GUARDED_BY(mutex);

protected:
    void customEvent(QEvent *) override
    {
        std::function<void()> job;
        {
            const MutexLock lock(mutex);
            job = std::move(jobs.front());
            jobs.pop_front();
        }
        job();
    }
};

Receiver *receiver ZVUPDATE_GUARDED_BY(mutex) = nullptr;

void dropReceiver()
{
    Receiver *former = nullptr;
    {
        const MutexLock lock(mutex);
        std::swap(former, receiver);
    }
    delete former; // With the jobs that have not run.
}

} // namespace

void MainQueue::async(std::function<void()> job)
{
    MutexLock lock(mutex);
    if (!receiver) {
        const QCoreApplication *application = QCoreApplication::instance();
        if (!application) {
            lock.unlock(); // What the host does with a line of the log is its own affair.
            systemLog(QStringLiteral("Nobody can be told: there is no QCoreApplication."));
            return;
        }
        receiver = new Receiver;
        receiver->moveToThread(application->thread());
        whenApplicationEnds(dropReceiver);
    }
    receiver->jobs.push_back(std::move(job));
    QCoreApplication::postEvent(receiver, new QEvent(QEvent::User));
}

} // namespace ZVPlatform
