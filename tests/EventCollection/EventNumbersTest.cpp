// _wtoi / _wtoi64 rules for the numbers of an event.
#include "EventNumbers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>

namespace
{
using collector::ni::impl::WToI;
using collector::ni::impl::WToI64;

TEST(WToI, ReadsPlainDecimal)
{
  EXPECT_EQ(WToI(L"7036"), 7036);
  EXPECT_EQ(WToI(L"0"), 0);
  EXPECT_EQ(WToI(L"-42"), -42);
  EXPECT_EQ(WToI(L"+42"), 42);
}

TEST(WToI, SkipsLeadingWhiteSpaceOnly)
{
  EXPECT_EQ(WToI(L" \t\n\v\f\r12"), 12);
  EXPECT_EQ(WToI(L"12 34"), 12);
  EXPECT_EQ(WToI(L"- 12"), 0);
}

TEST(WToI, StopsAtTheFirstNonDigit)
{
  EXPECT_EQ(WToI(L"16384x"), 16384);
  EXPECT_EQ(WToI(L"0x10"), 0);
  EXPECT_EQ(WToI(L"3.9"), 3);
  EXPECT_EQ(WToI(std::wstring_view(L"12\0" L"34", 5)), 12);
}

TEST(WToI, NoDigitsGiveZero)
{
  EXPECT_EQ(WToI(L""), 0);
  EXPECT_EQ(WToI(L"abc"), 0);
  EXPECT_EQ(WToI(L"-"), 0);
  EXPECT_EQ(WToI(L"+-1"), 0);
}

TEST(WToI, SaturatesOnOverflow)
{
  EXPECT_EQ(WToI(L"2147483647"), INT_MAX);
  EXPECT_EQ(WToI(L"2147483648"), INT_MAX);
  EXPECT_EQ(WToI(L"99999999999999999999"), INT_MAX);
  EXPECT_EQ(WToI(L"-2147483648"), INT_MIN);
  EXPECT_EQ(WToI(L"-2147483649"), INT_MIN);
  EXPECT_EQ(WToI(L"0000000000000000000000012"), 12);
}

TEST(WToI64, ReadsSixtyFourBits)
{
  EXPECT_EQ(WToI64(L"4294967296"), 4294967296LL);
  EXPECT_EQ(WToI64(L"  -9223372036854775808"), INT64_MIN);
  EXPECT_EQ(WToI64(L"9223372036854775807"), INT64_MAX);
  EXPECT_EQ(WToI64(L"9223372036854775808"), INT64_MAX);
  EXPECT_EQ(WToI64(L"-9223372036854775809"), INT64_MIN);
  EXPECT_EQ(WToI64(L"16384"), 16384);
  EXPECT_EQ(WToI64(L""), 0);
}
} // namespace
