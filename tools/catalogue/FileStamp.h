#pragma once

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
