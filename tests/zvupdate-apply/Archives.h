#pragma once

#include <QByteArray>
#include <QList>

/// An entry of an archive, which may be one that no honest program writes.
struct Item
{
    enum Kind { File, Folder, Link, SecondName, Device, Pipe };

    QByteArray path;
    Kind kind = File;
    QByteArray content = {}; ///< Of a file; a link's target.
    unsigned permissions = 0644;
    qint64 announced = -1; ///< The size that a file is said to have; -1 for that of its content.
};

/// "zip" or "tar", or what a tar archive is compressed by: "gzip", "xz" or "zstd".
QByteArray archiveOf(const QList<Item> &items, const QByteArray &format = "tar");
