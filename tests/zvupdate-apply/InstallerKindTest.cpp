#include "../../platform/files/InstallerKind.h"
#include "Archives.h"
#include "support/TestData.h"

#include <QBuffer>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

TEST(InstallerKind, IsFoundByTheContent)
{
    QList<std::pair<QByteArray, QStringList>> cases = {
        {archiveOf({{"name", Item::File, "content"}}), {u".tar"_s, u"a tar archive"_s}},
        {QByteArray(5000, '\1') + "koly" + QByteArray(508, '\0'), {u".dmg"_s, u"a disk image"_s}},
    };
    for (const QStringList &row : testRows("zvupdate-apply/kinds.tsv", 5))
        cases.append({QByteArray::fromPercentEncoding(row[0].toLatin1()), row.mid(1, 2)});
    for (auto [content, expected] : cases) {
        SCOPED_TRACE(content.left(20).constData());
        QBuffer buffer(&content);
        buffer.open(QIODevice::ReadOnly);
        const InstallerKind kind = installerKind(buffer);
        EXPECT_EQ(installerSuffix(kind), expected[0]);
        EXPECT_TRUE(installerOpener(kind).startsWith(expected[1])) << qPrintable(expected[1]);
    }
}
