#pragma once

#include "FileStamp.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

/// MD5 digests of files, each read only once for every state of the file. One thread at a time.
class FileDigests
{
public:
    /// The digest as lower-case hexadecimal text; absent when the file cannot be read.
    std::optional<QString> md5(const QString &path);

private:
    struct Entry
    {
        std::optional<FileStamp> stamp;
        QString md5;
    };
    QHash<QString, Entry> entries_;
};
