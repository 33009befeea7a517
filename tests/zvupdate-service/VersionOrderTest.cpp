#include "tools/catalogue/VersionOrder.h"

#include <QString>

#include <gtest/gtest.h>

TEST(VersionOrder, ComparesNumberByNumber)
{
    const struct
    {
        const char16_t *left;
        const char16_t *right;
        std::strong_ordering order;
    } cases[] = {
        {u"2103", u"2100", std::strong_ordering::greater},
        {u"999", u"1000", std::strong_ordering::less},
        {u"1.10", u"1.9", std::strong_ordering::greater},
        {u"1.9.1", u"1.9", std::strong_ordering::greater},
        {u"1.0", u"1", std::strong_ordering::equal},
        {u"1.01", u"1.1", std::strong_ordering::equal},
        {u"v2.1", u"2-1", std::strong_ordering::equal},
        {u"1.2", u"1.0.9", std::strong_ordering::greater},
        {u"", u"1", std::strong_ordering::less},
        {u"", u"none", std::strong_ordering::equal},
        {u"20240101123456789012345", u"20240101123456789012344", std::strong_ordering::greater},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(QString::fromUtf16(c.left).toStdString() + " against " +
                     QString::fromUtf16(c.right).toStdString());
        EXPECT_EQ(compareVersions(c.left, c.right), c.order);
        EXPECT_EQ(compareVersions(c.right, c.left), 0 <=> c.order);
    }
}
