#include "tools/zvupdate-service/RangeHeader.h"

#include "support/TestData.h"

TEST(RangeHeader, ReadsTheField)
{
    using Kind = RangeHeader::Kind;
    const QMap<QString, Kind> kinds{{QStringLiteral("whole"), Kind::Whole},
                                    {QStringLiteral("part"), Kind::Part},
                                    {QStringLiteral("none"), Kind::Unsatisfiable}};
    for (const QStringList &row : testRows("zvupdate-service/ranges.tsv", 5)) {
        SCOPED_TRACE(qPrintable(row.join(u'|')));
        const RangeHeader range(row[0].toLatin1(), row[1].toLongLong());
        EXPECT_EQ(range.kind(), kinds[row[2]]);
        EXPECT_EQ(range.offset(), row[3].toLongLong());
        EXPECT_EQ(range.length(), row[4].toLongLong());
    }
}
