#pragma once

#include <QFile>
#include <QStringList>

#include <gtest/gtest.h>

/// What a file of tests/service/data holds; a test that cannot read it fails.
inline QByteArray testData(const char *name)
{
    QFile file(QStringLiteral(ZVUPDATE_TESTS_DIR "/service/data/") + QString::fromUtf8(name));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << qPrintable(file.errorString());
    const QByteArray content = file.readAll();
    EXPECT_FALSE(content.isEmpty()) << name;
    return content;
}

/// The rows of a table of tab-separated columns, without its comments.
inline QList<QStringList> testRows(const char *name, qsizetype columns)
{
    QList<QStringList> rows;
    for (const QString &line : QString::fromUtf8(testData(name)).split(u'\n')) {
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        rows += line.split(u'\t');
        EXPECT_EQ(rows.last().size(), columns) << qPrintable(line);
    }
    EXPECT_GT(rows.size(), 5) << name;
    return rows;
}
