#include "DownloadModes.h"

#include "../../transport/DownloadMode.h"
#include "TestFiles.h"

#include <QDir>

#include <ostream>

void PrintTo(DownloadMode mode, std::ostream *stream)
{
    *stream << (mode == DownloadMode::Session ? "Session" : "Connection");
}

DownloadModeSwitch::DownloadModeSwitch(DownloadMode mode) : former_(kZVAppKitVersionNumber)
{
    kZVAppKitVersionNumber = mode == DownloadMode::Session ? 1343.0 : 1342.9;
}

DownloadModeSwitch::~DownloadModeSwitch()
{
    kZVAppKitVersionNumber = former_;
}

int libraryThreads()
{
    int count = 0;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray name = readFile(tasks.filePath(task + QStringLiteral("/comm")));
        count += name.startsWith("Download_Queue_") || name.startsWith("URL_") ||
                         name.startsWith("Update_Check")
                     ? 1
                     : 0;
    }
    return count;
}
