#include "tools/zvupdate-service/RangeHeader.h"

#include <gtest/gtest.h>

using Kind = RangeHeader::Kind;

namespace {

struct RangeCase
{
    const char *value;
    qint64 size;
    Kind kind;
    qint64 offset;
    qint64 length;
};

class RangeHeaderTable : public testing::TestWithParam<RangeCase>
{
};

constexpr qint64 kHuge = (qint64(5) << 30) + 3;

} // namespace

TEST_P(RangeHeaderTable, ReadsTheField)
{
    const RangeCase &c = GetParam();
    const RangeHeader range(c.value, c.size);
    EXPECT_EQ(range.kind(), c.kind) << c.value;
    EXPECT_EQ(range.offset(), c.offset) << c.value;
    EXPECT_EQ(range.length(), c.length) << c.value;
}

INSTANTIATE_TEST_SUITE_P(
    Parts, RangeHeaderTable,
    testing::Values(
        RangeCase{"bytes=0-", 10, Kind::Part, 0, 10}, RangeCase{"bytes=9-", 10, Kind::Part, 9, 1},
        RangeCase{"bytes=2-4", 10, Kind::Part, 2, 3}, RangeCase{"bytes=2-99", 10, Kind::Part, 2, 8},
        RangeCase{"bytes=2-99999999999999999999", 10, Kind::Part, 2, 8},
        RangeCase{"bytes=-3", 10, Kind::Part, 7, 3}, RangeCase{"bytes=-99", 10, Kind::Part, 0, 10},
        RangeCase{" Bytes= 1-1 ", 10, Kind::Part, 1, 1},
        RangeCase{"bytes=5368709120-", kHuge, Kind::Part, kHuge - 3, 3}));

INSTANTIATE_TEST_SUITE_P(PastTheEnd, RangeHeaderTable,
                         testing::Values(RangeCase{"bytes=10-", 10, Kind::Unsatisfiable, 0, 0},
                                         RangeCase{"bytes=99999999999999999999-", 10,
                                                   Kind::Unsatisfiable, 0, 0},
                                         RangeCase{"bytes=-0", 10, Kind::Unsatisfiable, 0, 0},
                                         RangeCase{"bytes=0-", 0, Kind::Unsatisfiable, 0, 0}));

INSTANTIATE_TEST_SUITE_P(WholeFile, RangeHeaderTable,
                         testing::Values(RangeCase{"", 10, Kind::Whole, 0, 10},
                                         RangeCase{"bytes", 10, Kind::Whole, 0, 10},
                                         RangeCase{"bytes=", 10, Kind::Whole, 0, 10},
                                         RangeCase{"bytes=-", 10, Kind::Whole, 0, 10},
                                         RangeCase{"bytes=4-2", 10, Kind::Whole, 0, 10},
                                         RangeCase{"bytes=a-2", 10, Kind::Whole, 0, 10},
                                         RangeCase{"bytes=+1-2", 10, Kind::Whole, 0, 10},
                                         RangeCase{"bytes=--2", 10, Kind::Whole, 0, 10},
                                         RangeCase{"bytes=0-1,4-5", 10, Kind::Whole, 0, 10},
                                         RangeCase{"lines=0-1", 10, Kind::Whole, 0, 10}));
