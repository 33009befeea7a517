#include "CatalogueOption.h"

#include <QDir>

#include <chrono>

using namespace Qt::StringLiterals;

namespace {

// Placing and digesting an installer may take its time.
constexpr std::chrono::milliseconds longestWait = std::chrono::minutes(1);

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

CommandOption CatalogueOption::json()
{
    return {.name = u"json"_s, .help = u"Writes JSON, for programs."_s};
}

CommandOption CatalogueOption::dryRun()
{
    return {.name = u"dry-run"_s, .help = u"Says what would be done, and changes nothing."_s};
}

std::unique_ptr<QLockFile> CatalogueOption::lock(const QString &directory, QString *error)
{
    if (!QDir(directory).exists()) {
        *error = u"%1: there is no such folder; make it, or give another"_s.arg(directory);
        return nullptr;
    }
    const QString path = QDir(directory).filePath(u".zvupdate-publish.lock"_s);
    auto lock = std::make_unique<QLockFile>(path);
    // One that is left over is told by its process, which is gone, and never by its age.
    lock->setStaleLockTime(0);
    if (lock->tryLock(static_cast<int>(longestWait.count())))
        return lock;
    *error = lock->error() == QLockFile::LockFailedError
                 ? u"%1: another zvupdate-publish is at work; wait for it to end"_s.arg(path)
                 : u"%1: cannot be made; make the folder writable"_s.arg(path);
    return nullptr;
}
