#pragma once

#include <QByteArray>
#include <QList>

/// An entry of an archive, which may be one that no honest program writes.
struct Item
{
    enum Kind { File, Folder, Link, SecondName, Device, Pipe, Huge };

    QByteArray path;
    Kind kind = File;
    QByteArray content = {}; ///< Of a file; a link's target.
    unsigned permissions = 0644;
};

/// "tar", "tar.gz", "tar.xz", "tar.zst" or "zip".
QByteArray archiveOf(const QList<Item> &items, const QByteArray &format = "tar");
