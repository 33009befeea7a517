#include "HostProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QString>

#include <thread>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds pollInterval(20);

// When a process was started, in the system's ticks; absent when it has ended, also while its end
// has not been noticed by its parent.
std::optional<quint64> startOf(pid_t identifier)
{
    QFile file(u"/proc/%1/stat"_s.arg(identifier));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // The name, in parentheses, may hold anything. After it comes the third field.
    const QByteArray line = file.readAll();
    const QList<QByteArray> fields = line.sliced(line.lastIndexOf(')') + 1).simplified().split(' ');
    constexpr qsizetype stateField = 3 - 3;
    constexpr qsizetype startField = 22 - 3;
    if (fields.size() <= startField || fields[stateField] == "Z" || fields[stateField] == "X")
        return std::nullopt;
    return fields[startField].toULongLong();
}

} // namespace

HostProcess::HostProcess(std::optional<pid_t> identifier) : identifier_(identifier.value_or(0))
{
    start_ = identifier ? startOf(identifier_) : std::nullopt;
    if (start_ > startOf(getpid()))
        start_ = std::nullopt;
}

bool HostProcess::hasEnded() const
{
    return !start_ || startOf(identifier_) != start_;
}

QStringList HostProcess::files() const
{
    const QDir process(u"/proc/%1"_s.arg(identifier_));
    const QDir folder(process.filePath(u"cwd"_s));
    QFile words(process.filePath(u"cmdline"_s));
    QStringList paths{process.filePath(u"exe"_s)};
    if (words.open(QIODevice::ReadOnly)) {
        for (const QByteArray &word : words.readAll().split('\0'))
            paths.append(folder.filePath(QFile::decodeName(word)));
    }
    for (QString &path : paths)
        path = QFileInfo(path).canonicalFilePath();
    return hasEnded() ? QStringList() : paths;
}

bool HostProcess::waitForEnd(std::chrono::seconds patience) const
{
    const auto deadline = Clock::now() + patience;
    while (!hasEnded()) {
        if (Clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(pollInterval);
    }
    return true;
}
