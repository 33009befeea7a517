#pragma once

#include "Testing.h"

#include <QStringList>

/// What a file below tests/ holds; a test that cannot read it fails.
inline QByteArray testData(const char *path)
{
    const QByteArray content =
        readFile(QStringLiteral(ZVUPDATE_TESTS_DIR "/") + QString::fromUtf8(path));
    EXPECT_FALSE(content.isEmpty()) << path;
    return content;
}

/// The rows of a table of tab-separated columns, without its comments.
inline QList<QStringList> testRows(const char *path, qsizetype columns)
{
    QList<QStringList> rows;
    for (const QString &line : QString::fromUtf8(testData(path)).split(u'\n')) {
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        rows += line.split(u'\t');
        EXPECT_EQ(rows.last().size(), columns) << qPrintable(line);
    }
    EXPECT_GT(rows.size(), 5) << path;
    return rows;
}
