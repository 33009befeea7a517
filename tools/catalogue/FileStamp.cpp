#include "FileStamp.h"

#include <QFile>

std::optional<FileStamp> FileStamp::of(const QString &path)
{
    const std::filesystem::path name(QFile::encodeName(path).toStdString());
    std::error_code failure;
    const auto size = std::filesystem::file_size(name, failure);
    if (failure)
        return std::nullopt;
    const auto modified = std::filesystem::last_write_time(name, failure);
    if (failure)
        return std::nullopt;
    return FileStamp{size, modified};
}
