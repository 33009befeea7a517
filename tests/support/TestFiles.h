#pragma once

#include <QByteArray>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>

/// The content of a file; null when it cannot be read.
inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Makes a file, or replaces what it holds. The directory must exist.
inline void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
}

/// All that is in a folder, by its path: what files hold and where links lead.
inline QMap<QString, QByteArray> treeOf(const QString &folder)
{
    QMap<QString, QByteArray> tree;
    QDirIterator each(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (each.hasNext()) {
        const QFileInfo info(each.next());
        const QString path = info.filePath();
        tree[path] = info.isSymLink() ? info.symLinkTarget().toUtf8()
                     : info.isFile()  ? readFile(path)
                                      : QByteArray();
    }
    return tree;
}
