#pragma once

#include "../../transport/DownloadMode.h"
#include "TestFiles.h"

#include <QDir>

#include <gtest/gtest.h>

#include <ostream>

/// How downloads run; see kZVAppKitVersionNumber.
enum class DownloadMode { Session, Connection };

/// Names a mode, also in the names of tests.
inline void PrintTo(DownloadMode mode, std::ostream *stream)
{
    *stream << (mode == DownloadMode::Session ? "Session" : "Connection");
}

/// Chooses a mode for as long as it lives.
class DownloadModeSwitch
{
public:
    explicit DownloadModeSwitch(DownloadMode mode)
    {
        kZVAppKitVersionNumber = mode == DownloadMode::Session ? 1343.0 : 1342.9;
    }
    ~DownloadModeSwitch() { kZVAppKitVersionNumber = former_; }

    DownloadModeSwitch(const DownloadModeSwitch &) = delete;
    DownloadModeSwitch &operator=(const DownloadModeSwitch &) = delete;

private:
    const double former_ = kZVAppKitVersionNumber;
};

/// For tests that run in both modes.
class InBothModes : public testing::WithParamInterface<DownloadMode>
{
    const DownloadModeSwitch mode_{GetParam()};
};
inline const auto bothModes = testing::Values(DownloadMode::Session, DownloadMode::Connection);

/// How many threads of the library are running, by their names.
inline int libraryThreads()
{
    int count = 0;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray name = readFile(tasks.filePath(task + QStringLiteral("/comm")));
        for (const char *ours : {"Download_Queue_", "URL_", "Update_Check"})
            count += name.startsWith(ours) ? 1 : 0;
    }
    return count;
}
