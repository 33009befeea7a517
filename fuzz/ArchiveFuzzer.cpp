#include "tools/zvupdate-apply/Archive.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdlib>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr quint64 room = 16 << 20; // bytes

// What has come out lies in the folder, and is of the kinds that may; every link that leads
// anywhere stays in it; and no more bytes have come than there was room for.
void lookAround(const QString &base, const QString &folder)
{
    if (QDir(base).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                             QDir::NoDotAndDotDot) != QStringList(QStringLiteral("into")))
        std::abort();
    quint64 size = 0;
    QDirIterator each(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (each.hasNext()) {
        const QFileInfo info(each.next());
        const QString place = info.canonicalFilePath();
        const bool stays = place.isEmpty() || place == folder || place.startsWith(folder + u'/');
        if (!stays || (!info.isSymLink() && !info.isFile() && !info.isDir()))
            std::abort();
        struct stat status = {};
        lstat(QFile::encodeName(info.filePath()).constData(), &status);
        if (S_ISREG(status.st_mode))
            size += static_cast<quint64>(status.st_size) / status.st_nlink;
    }
    if (size > room)
        std::abort();
}

} // namespace

/// Archives of whatever bytes, the first of which says whether a top folder is stripped. What the
/// survey has passed is unpacked; it is for the unpacking to find damage after that.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QTemporaryDir base;
    static const int file = memfd_create("archive", MFD_CLOEXEC);
    if (size == 0 || ftruncate(file, 0) != 0 ||
        pwrite(file, data + 1, size - 1, 0) != static_cast<ssize_t>(size - 1))
        return 0;
    const Archive archive(file, (data[0] & 1) != 0);
    const QString folder = QFileInfo(base.path()).canonicalFilePath() + QStringLiteral("/into");
    if (!archive.survey(room))
        return 0;
    QDir().mkpath(folder);
    [[maybe_unused]] const auto unpacked = archive.unpack(folder);
    lookAround(base.path(), folder);
    QDir(folder).removeRecursively();
    return 0;
}
