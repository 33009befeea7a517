#include "MainQueue.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>

#include <mutex>
#include <utility>

namespace ZVPlatform {

namespace {

std::mutex mutex;
// Guarded by mutex. Lives on the application's thread, and no longer than the application object:
// posting to the application itself would race with its destruction.
QObject *receiver = nullptr;

void dropReceiver()
{
    QObject *former = nullptr;
    {
        const std::lock_guard lock(mutex);
        std::swap(former, receiver);
    }
    delete former; // Destroys the jobs that have not run.
}

} // namespace

void MainQueue::async(std::function<void()> job)
{
    const std::lock_guard lock(mutex);
    if (!receiver) {
        const QCoreApplication *application = QCoreApplication::instance();
        if (!application)
            return;
        receiver = new QObject;
        receiver->moveToThread(application->thread());
        qAddPostRoutine(dropReceiver);
    }
    QMetaObject::invokeMethod(receiver, std::move(job), Qt::QueuedConnection);
}

} // namespace ZVPlatform
