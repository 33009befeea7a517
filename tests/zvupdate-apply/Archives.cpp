#include "Archives.h"

#include <archive.h>
#include <archive_entry.h>

namespace {

void write(archive *writer, const Item &item)
{
    archive_entry *entry = archive_entry_new();
    archive_entry_set_pathname(entry, item.path.constData());
    archive_entry_set_perm(entry, item.permissions);
    archive_entry_set_size(entry, item.announced < 0 ? item.content.size() : item.announced);
    constexpr decltype(AE_IFREG) types[] = {AE_IFREG, AE_IFDIR, AE_IFLNK,
                                            AE_IFREG, AE_IFCHR, AE_IFIFO};
    archive_entry_set_filetype(entry, types[item.kind]);
    if (item.kind == Item::Link || item.kind == Item::SecondName) {
        const auto lead =
            item.kind == Item::Link ? archive_entry_set_symlink : archive_entry_set_hardlink;
        lead(entry, item.content.constData());
        archive_entry_set_size(entry, 0);
    }
    archive_write_header(writer, entry);
    if (item.kind == Item::File)
        archive_write_data(writer, item.content.constData(), size_t(item.content.size()));
    archive_entry_free(entry);
}

} // namespace

QByteArray archiveOf(const QList<Item> &items, const QByteArray &format)
{
    archive *writer = archive_write_new();
    archive_write_set_format_by_name(writer, format == "zip" ? "zip" : "paxr");
    if (format != "zip" && format != "tar")
        archive_write_add_filter_by_name(writer, format.constData());
    QByteArray bytes(4 << 20, '\0');
    size_t used = 0;
    archive_write_open_memory(writer, bytes.data(), size_t(bytes.size()), &used);
    for (const Item &item : items)
        write(writer, item);
    archive_write_free(writer); // Closes it, with what an unfinished entry lacks.
    bytes.resize(qsizetype(used));
    return bytes;
}
