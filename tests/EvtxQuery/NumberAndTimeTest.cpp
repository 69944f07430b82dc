#include "Evtx/Query/Query.h"
#include "Expr.h"
#include "Number.h"
#include "TimeText.h"

#include <gtest/gtest.h>

namespace
{
using namespace evtx::query;

TEST(Number, ParsesDecimalHexAndFractions)
{
  EXPECT_EQ(ParseNumber(L" 42 ").magnitude, 42u);
  EXPECT_TRUE(ParseNumber(L"0x8000000000000000").integral);
  EXPECT_EQ(ParseNumber(L"0x8000000000000000").magnitude, 0x8000000000000000ull);
  EXPECT_EQ(ParseNumber(L"18446744073709551615").magnitude, UINT64_MAX);
  EXPECT_FALSE(ParseNumber(L"18446744073709551616").integral);
  EXPECT_DOUBLE_EQ(ParseNumber(L"-1.5").value, -1.5);
  EXPECT_FALSE(ParseNumber(L"").valid);
  EXPECT_FALSE(ParseNumber(L"abc").valid);
  EXPECT_FALSE(ParseNumber(L"0x").valid);
  EXPECT_FALSE(ParseNumber(L"0x10000000000000000").valid);
}

TEST(Number, LargeIntegersCompareExactly)
{
  // These two differ by one but are the same double.
  const Number a = ParseNumber(L"9007199254740993");
  const Number b = ParseNumber(L"9007199254740992");
  EXPECT_TRUE(CompareNumbers(a, b, CompareOp::Gt));
  EXPECT_TRUE(CompareNumbers(ParseNumber(L"-2"), ParseNumber(L"1"), CompareOp::Lt));
  EXPECT_TRUE(CompareNumbers(ParseNumber(L"-0"), ParseNumber(L"0"), CompareOp::Eq));
  EXPECT_TRUE(CompareNumbers(ParseNumber(L"1.5"), ParseNumber(L"1"), CompareOp::Gt));
}

TEST(Number, NaNComparesUnequalOnly)
{
  const Number nan = ParseNumber(L"x");
  EXPECT_FALSE(CompareNumbers(nan, nan, CompareOp::Eq));
  EXPECT_TRUE(CompareNumbers(nan, ParseNumber(L"1"), CompareOp::Ne));
  EXPECT_FALSE(CompareNumbers(nan, ParseNumber(L"1"), CompareOp::Lt));
}

TEST(SystemTime, ParsesToFileTimeTicks)
{
  // 1601-01-01 is tick 0; 1970-01-01 is 116444736000000000.
  EXPECT_EQ(ParseSystemTime(L"1601-01-01T00:00:00Z"), 0u);
  EXPECT_EQ(ParseSystemTime(L"1970-01-01T00:00:00.0000000Z"), 116444736000000000ull);
  EXPECT_EQ(ParseSystemTime(L"1970-01-01T00:00:01.5Z"), 116444736015000000ull);
  EXPECT_EQ(ParseSystemTime(L"2024-05-01T10:20:30.1234567Z").value() % 10000000u, 1234567u);
  EXPECT_FALSE(ParseSystemTime(L"2024-05-01 10:20:30Z"));
  EXPECT_FALSE(ParseSystemTime(L"2024-02-30T10:20:30Z"));
  EXPECT_FALSE(ParseSystemTime(L"2024-05-01T10:20"));
  EXPECT_FALSE(ParseSystemTime(L"2024-05-01T10:20:30.Z"));
}

TEST(SystemTime, CurrentTimeIsAfter2020)
{
  EXPECT_GT(CurrentFileTime(), *ParseSystemTime(L"2020-01-01T00:00:00Z"));
}
} // namespace
