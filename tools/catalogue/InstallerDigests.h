#pragma once

#include <QHash>
#include <QString>

#include <cstdint>
#include <filesystem>
#include <functional>
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

/// Is told of each piece of a file that has been worked through, by its bytes.
using PieceDone = std::function<void(qint64 bytes)>;

/// Digests of installers. One thread at a time.
class InstallerDigests
{
public:
    /// The digests of a file, in lower-case hexadecimal.
    struct Both
    {
        /// As update clients compute it: of a file of 4 GiB or more only the first (size modulo
        /// 2^32) bytes count.
        QString md5;
        /// Of the whole file. It says that two files are the same also when somebody wants them
        /// not to be.
        QString sha256;
    };

    /// The MD5 alone, for which a file is read only once for every state of it; absent when the
    /// file, given by an absolute path without any link in it, cannot be read or shrinks meanwhile.
    std::optional<QString> md5(const QString &path, const PieceDone &done = {});

    /// Both, likewise read only once for every state of the file.
    std::optional<Both> bothOnce(const QString &path);

    /// Both, of the file as it is now, in one reading; absent likewise.
    static std::optional<Both> both(const QString &path, const PieceDone &done);

private:
    struct Entry
    {
        std::optional<FileStamp> stamp;
        Both digests; ///< The SHA-256 is empty as long as nobody has asked for it.
    };

    /// What is known of a file in this state; empty when nothing is.
    Both known(const QString &path, const std::optional<FileStamp> &stamp) const;

    QHash<QString, Entry> entries_;
};
