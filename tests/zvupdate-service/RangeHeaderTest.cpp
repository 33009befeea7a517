#include "tools/zvupdate-service/RangeHeader.h"

#include <gtest/gtest.h>

TEST(RangeHeader, ReadsTheField)
{
    using Kind = RangeHeader::Kind;
    constexpr qint64 huge = (qint64(5) << 30) + 3;
    const struct
    {
        const char *value;
        qint64 size;
        Kind kind;
        qint64 offset;
        qint64 length;
    } cases[] = {
        {"bytes=0-", 10, Kind::Part, 0, 10},
        {"bytes=9-", 10, Kind::Part, 9, 1},
        {"bytes=2-4", 10, Kind::Part, 2, 3},
        {"bytes=2-99", 10, Kind::Part, 2, 8},
        {"bytes=2-99999999999999999999", 10, Kind::Part, 2, 8},
        {"bytes=-3", 10, Kind::Part, 7, 3},
        {"bytes=-99", 10, Kind::Part, 0, 10},
        {" Bytes= 1-1 ", 10, Kind::Part, 1, 1},
        {"bytes=5368709120-", huge, Kind::Part, huge - 3, 3},
        {"bytes=10-", 10, Kind::Unsatisfiable, 0, 0},
        {"bytes=99999999999999999999-", 10, Kind::Unsatisfiable, 0, 0},
        {"bytes=-0", 10, Kind::Unsatisfiable, 0, 0},
        {"bytes=0-", 0, Kind::Unsatisfiable, 0, 0},
    };
    for (const auto &c : cases) {
        const RangeHeader range(c.value, c.size);
        EXPECT_EQ(range.kind(), c.kind) << c.value;
        EXPECT_EQ(range.offset(), c.offset) << c.value;
        EXPECT_EQ(range.length(), c.length) << c.value;
    }
    for (const char *value : {"", "bytes", "bytes=", "bytes=-", "bytes=4-2", "bytes=a-2",
                              "bytes=+1-2", "bytes=--2", "bytes=0-1,4-5", "lines=0-1"}) {
        const RangeHeader range(value, 10);
        EXPECT_EQ(range.kind(), Kind::Whole) << value;
        EXPECT_EQ(range.length(), 10) << value;
    }
}
