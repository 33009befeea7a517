#include "Archive.h"

#include "../../platform/files/Files.h"

#include <QHash>
#include <QStringList>

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>

#include <clocale>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr size_t blockSize = 64 << 10;
constexpr quint64 unit = 4096;             // bytes in which file systems give out their room
constexpr qsizetype mostNames = 1'000'000; // folders among them; bounds the memory
constexpr qsizetype deepest = 100;         // folders in one another
constexpr mode_t specialBits = S_ISUID | S_ISGID | S_ISVTX;

enum class EntryKind { Folder, File, Link, SecondName };

struct Entry
{
    EntryKind kind = EntryKind::Folder;
    QString path = {};    // Below the folder that is unpacked into; empty for that itself.
    QString leadsTo = {}; // A link's target, or the path of the file that gets a second name.
    quint64 size = 0;
};

// Names in archives are converted by the thread's locale, and are UTF-8 here wherever this runs.
class Utf8Locale
{
public:
    Utf8Locale()
        : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), former_(uselocale(locale_))
    {
    }
    Utf8Locale(const Utf8Locale &) = delete;
    Utf8Locale &operator=(const Utf8Locale &) = delete;
    ~Utf8Locale()
    {
        uselocale(former_);
        if (locale_)
            freelocale(locale_);
    }

private:
    locale_t locale_;
    locale_t former_;
};

// The same for two names that differ in case alone, or in how letters are put together.
QString folded(const QString &path)
{
    return path.normalized(QString::NormalizationForm_C).toCaseFolded();
}

struct FreeArchive
{
    void operator()(archive *each) const { archive_free(each); }
};
using OpenArchive = std::unique_ptr<archive, FreeArchive>;

QString reasonOf(archive *each)
{
    const char *text = archive_error_string(each);
    return text ? QString::fromUtf8(text) : u"no reason is known"_s;
}

Failure<QString> damaged(archive *reader)
{
    return {u"the archive is damaged, or of another kind (%1)"_s.arg(reasonOf(reader))};
}

// Finds what an entry is and where it would go, and refuses what must not be unpacked.
class Inspector
{
public:
    explicit Inspector(bool stripsTopFolder) : stripsTopFolder_(stripsTopFolder) {}

    Result<Entry> inspect(archive_entry *raw);

private:
    Result<void> describe(archive_entry *raw, Entry &entry);
    Result<QString> pathFrom(const char *name);
    Result<void> inspectLink(const Entry &entry) const;
    Result<void> enter(const Entry &entry);
    Result<void> enter(const QString &path, EntryKind kind);

    struct Known
    {
        QString path;
        EntryKind kind = EntryKind::Folder;
    };

    const bool stripsTopFolder_;
    QString topFolder_;
    QHash<QString, Known> known_; // By the folded path.
};

Failure<QString> refused(const QString &path, const QString &why)
{
    return {u"in the archive, \"%1\" %2"_s.arg(path, why)};
}

Result<Entry> Inspector::inspect(archive_entry *raw)
{
    const auto path = pathFrom(archive_entry_pathname_utf8(raw));
    if (!path)
        return Failure{path.error()};
    Entry entry{.path = *path};
    auto passed = describe(raw, entry);
    const bool isLink = entry.kind == EntryKind::Link; // Its permissions mean nothing.
    if (passed && !isLink && (archive_entry_perm(raw) & specialBits) != 0)
        passed = refused(entry.path, u"has a set-user, set-group or sticky bit"_s);
    if (passed && entry.path.isEmpty() && entry.kind != EntryKind::Folder)
        passed = Failure{u"the archive has no one top folder to strip"_s};
    if (passed)
        passed = enter(entry);
    return passed ? Result<Entry>(entry) : Failure{passed.error()};
}

Result<void> Inspector::describe(archive_entry *raw, Entry &entry)
{
    if (archive_entry_hardlink(raw)) {
        const auto first = pathFrom(archive_entry_hardlink_utf8(raw));
        if (!first)
            return Failure{first.error()};
        entry.kind = EntryKind::SecondName;
        entry.leadsTo = *first;
        const Known known = known_.value(folded(*first));
        return known.path == *first && known.kind == EntryKind::File
                   ? Result<void>()
                   : refused(entry.path, u"is a second name of no file before it"_s);
    }
    switch (archive_entry_filetype(raw)) {
    case AE_IFDIR:
        return {};
    case AE_IFLNK:
        entry.kind = EntryKind::Link;
        entry.leadsTo = QString::fromUtf8(archive_entry_symlink_utf8(raw));
        return inspectLink(entry);
    case AE_IFREG:
        entry.kind = EntryKind::File;
        if (!archive_entry_size_is_set(raw) || archive_entry_size(raw) < 0)
            return refused(entry.path, u"has no size"_s);
        entry.size = static_cast<quint64>(archive_entry_size(raw));
        return {};
    default:
        return refused(entry.path, u"is a device or the like"_s);
    }
}

Result<QString> Inspector::pathFrom(const char *name)
{
    if (!name)
        return Failure{u"the archive has a name that is not UTF-8"_s};
    const QString whole = QString::fromUtf8(name);
    if (whole.startsWith(u'/'))
        return refused(whole, u"is an absolute name"_s);
    QStringList parts = whole.split(u'/', Qt::SkipEmptyParts);
    parts.removeAll(u"."_s);
    if (parts.size() > deepest)
        return refused(whole, u"lies too deep"_s);
    if (!std::all_of(parts.cbegin(), parts.cend(), Files::isPlainName))
        return refused(whole, u"is not a name within the folder"_s);
    if (!stripsTopFolder_ || parts.isEmpty())
        return parts.join(u'/');
    if (!topFolder_.isEmpty() && parts.first() != topFolder_)
        return Failure{u"the archive has no one top folder to strip"_s};
    topFolder_ = parts.takeFirst();
    return parts.join(u'/');
}

// Only in the beginning of a link may ".." stand: behind a name that is a link itself it would lead
// to somewhere else than it says.
Result<void> Inspector::inspectLink(const Entry &entry) const
{
    QStringList parts = entry.leadsTo.split(u'/', Qt::SkipEmptyParts);
    qsizetype depth = entry.path.count(u'/');
    while (!parts.isEmpty() && parts.first() == u".."_s && depth-- > 0)
        parts.removeFirst();
    parts.removeAll(u"."_s);
    const bool stays = !entry.leadsTo.isEmpty() && !entry.leadsTo.startsWith(u'/') &&
                       std::all_of(parts.cbegin(), parts.cend(), Files::isPlainName);
    return stays ? Result<void>() : refused(entry.path, u"is a link that leaves the folder"_s);
}

Result<void> Inspector::enter(const Entry &entry)
{
    for (qsizetype slash = entry.path.indexOf(u'/'); slash >= 0;
         slash = entry.path.indexOf(u'/', slash + 1)) {
        if (auto entered = enter(entry.path.first(slash), EntryKind::Folder); !entered)
            return entered;
    }
    return entry.path.isEmpty() ? Result<void>() : enter(entry.path, entry.kind);
}

// The same folder may come again and again; nothing else may.
Result<void> Inspector::enter(const QString &path, EntryKind kind)
{
    const auto found = known_.constFind(folded(path));
    if (found == known_.constEnd()) {
        if (known_.size() >= mostNames)
            return Failure{u"the archive has more than %1 names"_s.arg(mostNames)};
        known_.insert(folded(path), {path, kind});
        return {};
    }
    if (found->path != path)
        return refused(path, u"has the name of \"%1\" but for the case"_s.arg(found->path));
    if (found->kind != EntryKind::Folder || kind != EntryKind::Folder)
        return refused(path, u"comes twice, or as a folder and as something else"_s);
    return {};
}

using Take = std::function<Result<void>(const Entry &, archive *, archive_entry *)>;

// Goes through the archive from its beginning.
Result<void> forEach(int descriptor, bool stripsTopFolder, const Take &take)
{
    const OpenArchive reader(archive_read_new());
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_filter_xz(reader.get());
    archive_read_support_filter_zstd(reader.get());
    archive_read_support_format_tar(reader.get());
    archive_read_support_format_zip_seekable(reader.get());
    if (lseek(descriptor, 0, SEEK_SET) != 0 ||
        archive_read_open_fd(reader.get(), descriptor, blockSize) != ARCHIVE_OK)
        return damaged(reader.get());

    Inspector inspector(stripsTopFolder);
    bool hasFile = false;
    for (;;) {
        archive_entry *raw = nullptr;
        const int got = archive_read_next_header(reader.get(), &raw);
        if (got == ARCHIVE_EOF)
            break;
        if (got != ARCHIVE_OK && got != ARCHIVE_WARN)
            return damaged(reader.get());
        const auto entry = inspector.inspect(raw);
        if (!entry)
            return Failure{entry.error()};
        hasFile = hasFile || entry->kind == EntryKind::File;
        if (entry->path.isEmpty())
            continue;
        if (auto taken = take(*entry, reader.get(), raw); !taken)
            return taken;
    }
    return hasFile ? Result<void>() : Failure{u"the archive has no file in it"_s};
}

Result<void> copyData(const Entry &entry, archive *reader, archive *writer)
{
    for (;;) {
        const void *bytes = nullptr;
        size_t length = 0;
        la_int64_t offset = 0;
        const int got = archive_read_data_block(reader, &bytes, &length, &offset);
        if (got == ARCHIVE_EOF)
            return {};
        if (got != ARCHIVE_OK)
            return damaged(reader);
        if (offset < 0 || static_cast<quint64>(offset) + length > entry.size)
            return refused(entry.path, u"has more bytes than it says"_s);
        if (archive_write_data_block(writer, bytes, length, offset) != ARCHIVE_OK)
            return refused(entry.path, u"cannot be written: "_s + reasonOf(writer));
    }
}

} // namespace

Result<void> Archive::survey(quint64 room) const
{
    const Utf8Locale locale;
    quint64 left = room;
    return forEach(descriptor_, stripsTopFolder_,
                   [&left](const Entry &entry, archive *, archive_entry *) -> Result<void> {
                       const quint64 units = entry.size / unit + 2;
                       if (units > left / unit)
                           return Failure{
                               u"there is no room on the disk for what is in the archive"_s};
                       left -= units * unit;
                       return {};
                   });
}

Result<void> Archive::unpack(const QString &folder) const
{
    const Utf8Locale locale;
    const OpenArchive writer(archive_write_disk_new());
    archive_write_disk_set_options(
        writer.get(), ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_NO_OVERWRITE |
                          ARCHIVE_EXTRACT_SECURE_SYMLINKS | ARCHIVE_EXTRACT_SECURE_NODOTDOT);
    const auto below = [&folder](const QString &path) {
        return Files::join(folder, path).toUtf8();
    };
    auto done = forEach(
        descriptor_, stripsTopFolder_,
        [&](const Entry &entry, archive *reader, archive_entry *raw) -> Result<void> {
            const bool isExecutable =
                entry.kind == EntryKind::Folder || (archive_entry_perm(raw) & S_IXUSR) != 0;
            archive_entry_set_perm(raw, isExecutable ? 0755 : 0644);
            archive_entry_set_pathname(raw, below(entry.path).constData());
            if (entry.kind == EntryKind::SecondName) {
                archive_entry_set_hardlink(raw, below(entry.leadsTo).constData());
                archive_entry_unset_size(raw);
            }
            if (archive_write_header(writer.get(), raw) != ARCHIVE_OK)
                return refused(entry.path, u"cannot be written: "_s + reasonOf(writer.get()));
            if (entry.kind == EntryKind::File) {
                if (auto copied = copyData(entry, reader, writer.get()); !copied)
                    return copied;
            }
            if (archive_write_finish_entry(writer.get()) != ARCHIVE_OK)
                return refused(entry.path, u"cannot be written: "_s + reasonOf(writer.get()));
            return {};
        });
    if (done && archive_write_close(writer.get()) != ARCHIVE_OK)
        return Failure{u"the archive cannot be unpacked: "_s + reasonOf(writer.get())};
    return done;
}
