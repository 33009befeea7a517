#include "CatalogueOption.h"

#include <QDir>
#include <QFileInfo>
#include <QSysInfo>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

// Placing and digesting an installer may take its time.
constexpr std::chrono::milliseconds longestWait = std::chrono::minutes(1);
// For one of whom it cannot be told whether it is still at work.
constexpr std::chrono::milliseconds shortWait = std::chrono::seconds(2);

struct Holder
{
    QString host;
    QString name;
};

// Who holds the lock; of an empty file, or one that is no lock, nobody knows.
std::optional<Holder> holderOf(const QLockFile &lock)
{
    qint64 process = 0;
    Holder holder;
    QString program;
    if (!lock.getLockInfo(&process, &holder.host, &program))
        return std::nullopt;
    holder.name = u"%1, process %2 on %3"_s.arg(program).arg(process).arg(holder.host);
    return holder;
}

QString heldBy(const QString &path, const std::optional<Holder> &holder)
{
    const QString since = QFileInfo(path).lastModified().toUTC().toString(Qt::ISODate);
    const QString name = holder ? holder->name : u"somebody who has not put down a name"_s;
    return u"%1: has been held since %2 by %3; wait for its end, or, if nothing of it is at work "
           "any more, remove this file and try again"_s.arg(path, since, name);
}

} // namespace

CommandOption CatalogueOption::catalogue()
{
    return {.name = u"catalogue"_s,
            .valueName = u"DIR"_s,
            .help = u"The folder with releases.json."_s,
            .isRequired = true};
}

CommandOption CatalogueOption::productId()
{
    return {.name = u"product-id"_s,
            .valueName = u"ID"_s,
            .help = u"The product, by the identifier that its hosts configure."_s,
            .isRequired = true};
}

CommandOption CatalogueOption::version()
{
    return {.name = u"version"_s,
            .valueName = u"VERSION"_s,
            .help = u"The release."_s,
            .isRequired = true};
}

CommandOption CatalogueOption::json()
{
    return {.name = u"json"_s, .help = u"Writes JSON, for programs."_s};
}

CommandOption CatalogueOption::dryRun()
{
    return {.name = u"dry-run"_s, .help = u"Says what would be done, and changes nothing."_s};
}

CommandOption CatalogueOption::allowUnsigned()
{
    return {.name = u"allow-unsigned"_s,
            .help = u"Also takes releases for offered that are not signed as builds with release "
                    "keys demand it, which those will refuse."_s};
}

Result<std::unique_ptr<QLockFile>> CatalogueOption::lock(const QString &directory)
{
    if (!QDir(directory).exists())
        return Failure{u"%1: there is no such folder; make it, or give another"_s.arg(directory)};
    const QString path = QDir(directory).filePath(u".zvupdate-publish.lock"_s);
    auto lock = std::make_unique<QLockFile>(path);
    // One that is left over is told by its process, which is gone, and never by its age.
    lock->setStaleLockTime(0);
    // What is no file is no lock, and would never be released.
    if (QFileInfo(path).isSymLink() || (QFileInfo::exists(path) && !QFileInfo(path).isFile()))
        return Failure{u"%1: is no file; remove it"_s.arg(path)};
    if (lock->tryLock(static_cast<int>(shortWait.count())))
        return lock;
    auto holder = holderOf(*lock);
    const auto rest = longestWait - shortWait;
    if (holder && holder->host == QSysInfo::machineHostName() &&
        lock->tryLock(static_cast<int>(rest.count())))
        return lock;
    return Failure{lock->error() == QLockFile::LockFailedError
                       ? heldBy(path, holder)
                       : u"%1: cannot be made; make the folder writable"_s.arg(path)};
}
