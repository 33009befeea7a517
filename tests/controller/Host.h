#pragma once

#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QStringList>
#include <QThread>

#include <gmock/gmock.h>

#include <functional>

/// A host that remembers what it was told, and sees to it that it was told on the main thread.
class Host : public ZVUpdateProcDelegate
{
public:
    void UpdateFileReady(const QString &path) override { hear(path); }
    void windowClosedUpdateAction() override { hear(QStringLiteral("update")); }
    void windowClosedCancelAction() override { hear(QStringLiteral("cancel")); }

    QStringList heard;
    std::function<void()> whenTold = [] {};

protected:
    void hear(const QString &what)
    {
        EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
        heard.append(what);
        whenTold();
    }
};
