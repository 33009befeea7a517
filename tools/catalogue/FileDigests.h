#pragma once

#include <QHash>
#include <QString>

#include <cstdint>
#include <filesystem>
#include <optional>

/// What tells one state of a file from another without reading it.
struct FileStamp
{
    std::uintmax_t size;
    std::filesystem::file_time_type modified;

    /// Absent when there is no file at path, or it is not to be seen.
    static std::optional<FileStamp> of(const QString &path);

    bool operator==(const FileStamp &) const = default;
};

/// MD5 digests of files, each read only once for every state of the file. One thread at a time.
class FileDigests
{
public:
    /// The digest as update clients compute it, in lower-case hexadecimal; absent when the file
    /// cannot be read or shrinks meanwhile. Of a file of 4 GiB or more only the first (size modulo
    /// 2^32) bytes count.
    std::optional<QString> md5(const QString &path);

private:
    struct Entry
    {
        std::optional<FileStamp> stamp;
        QString md5;
    };
    QHash<QString, Entry> entries_;
};
