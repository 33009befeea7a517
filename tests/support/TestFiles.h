#pragma once

#include <QByteArray>
#include <QFile>

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
