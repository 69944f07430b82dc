#include "KeldaKernel/OleDateTime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

namespace
{
SYSTEMTIME Make(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int ms = 0)
{
  SYSTEMTIME time{};
  time.wYear = static_cast<WORD>(year);
  time.wMonth = static_cast<WORD>(month);
  time.wDay = static_cast<WORD>(day);
  time.wHour = static_cast<WORD>(hour);
  time.wMinute = static_cast<WORD>(minute);
  time.wSecond = static_cast<WORD>(second);
  time.wMilliseconds = static_cast<WORD>(ms);
  return time;
}

constexpr double oneMs = 1.0 / 86400000.0;
} // namespace

TEST(OleDateTime, KnownDates)
{
  EXPECT_EQ(COleDateTimeEx(1899, 12, 30, 0, 0, 0).GetDate(), 0.0);
  EXPECT_EQ(COleDateTimeEx(1900, 1, 1, 0, 0, 0).GetDate(), 2.0);
  EXPECT_EQ(COleDateTimeEx(1970, 1, 1, 0, 0, 0).GetDate(), 25569.0);
  EXPECT_EQ(COleDateTimeEx(2000, 1, 1, 12, 0, 0).GetDate(), 36526.5);
  EXPECT_EQ(COleDateTimeEx(100, 1, 1, 0, 0, 0).GetDate(), -657434.0);
  EXPECT_EQ(COleDateTimeEx(9999, 12, 31, 0, 0, 0).GetDate(), 2958465.0);
  // Before the epoch the day is negative and the time of day still counts forward.
  EXPECT_EQ(COleDateTimeEx(1899, 12, 29, 6, 0, 0).GetDate(), -1.25);
  EXPECT_EQ(COleDateTimeEx(1899, 12, 28, 18, 0, 0).GetDate(), -2.75);
  EXPECT_EQ(COleDateTimeEx().GetStatus(), COleDateTimeEx::valid);
}

TEST(OleDateTime, MillisecondsSurviveRoundTrip)
{
  double date = 0;
  ASSERT_TRUE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 5, 1, 10, 20, 30, 123), &date));
  EXPECT_NEAR(date, 45413.43090420139, 1e-9);
  SYSTEMTIME back{};
  ASSERT_TRUE(COleDateTimeEx::VariantTimeToSystemTimeWithMilliseconds(date, &back));
  EXPECT_EQ(back.wYear, 2024);
  EXPECT_EQ(back.wMonth, 5);
  EXPECT_EQ(back.wDay, 1);
  EXPECT_EQ(back.wDayOfWeek, 3); // Wednesday
  EXPECT_EQ(back.wHour, 10);
  EXPECT_EQ(back.wMinute, 20);
  EXPECT_EQ(back.wSecond, 30);
  EXPECT_EQ(back.wMilliseconds, 123);
}

TEST(OleDateTime, NegativeDateConvertsBackToItsCalendarDay)
{
  SYSTEMTIME back{};
  ASSERT_TRUE(COleDateTimeEx(Make(1850, 7, 14, 23, 59, 59, 999)).GetAsSystemTime(back));
  EXPECT_EQ(back.wYear, 1850);
  EXPECT_EQ(back.wMonth, 7);
  EXPECT_EQ(back.wDay, 14);
  EXPECT_EQ(back.wHour, 23);
  EXPECT_EQ(back.wMilliseconds, 999);
}

TEST(OleDateTime, RoundingToMillisecondCarriesIntoNextDay)
{
  SYSTEMTIME back{};
  ASSERT_TRUE(COleDateTimeEx::VariantTimeToSystemTimeWithMilliseconds(1.0 - oneMs / 10, &back));
  EXPECT_EQ(back.wYear, 1899);
  EXPECT_EQ(back.wMonth, 12);
  EXPECT_EQ(back.wDay, 31);
  EXPECT_EQ(back.wHour, 0);
  EXPECT_EQ(back.wMilliseconds, 0);
}

TEST(OleDateTime, InvalidFieldsAreRejected)
{
  double date = 42;
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 13, 1), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 0, 1), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 4, 31), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(1900, 2, 29), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 1, 1, 24), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 1, 1, 0, 60), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 1, 1, 0, 0, 60), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 1, 1, 0, 0, 0, 1000), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(99, 1, 1), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(10000, 1, 1), &date));
  EXPECT_FALSE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 1, 1), nullptr));
  EXPECT_EQ(date, 42);
  EXPECT_TRUE(COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(Make(2024, 2, 29), &date));
  EXPECT_EQ(COleDateTimeEx(Make(2023, 2, 29)).GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(COleDateTimeEx(2024, 1, 1, -1, 0, 0).GetStatus(), COleDateTimeEx::invalid);
  SYSTEMTIME back{};
  EXPECT_FALSE(COleDateTimeEx(Make(2023, 2, 29)).GetAsSystemTime(back));
  EXPECT_FALSE(COleDateTimeEx::VariantTimeToSystemTimeWithMilliseconds(3e6, &back));
  EXPECT_FALSE(COleDateTimeEx::VariantTimeToSystemTimeWithMilliseconds(NAN, &back));
  EXPECT_EQ(COleDateTimeEx(-700000.0).GetStatus(), COleDateTimeEx::invalid);
}

TEST(OleDateTime, FromFileTime)
{
  // 2024-05-01T10:20:30.1234567Z in 100 ns ticks since 1601.
  const std::uint64_t ticks = (1714558830ull + 11644473600ull) * 10000000ull + 1234567ull;
  const FILETIME file{static_cast<DWORD>(ticks & 0xFFFFFFFFu), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME back{};
  ASSERT_TRUE(COleDateTimeEx(file).GetAsSystemTime(back));
  EXPECT_EQ(back.wYear, 2024);
  EXPECT_EQ(back.wHour, 10);
  EXPECT_EQ(back.wSecond, 30);
  EXPECT_EQ(back.wMilliseconds, 123);

  ASSERT_TRUE(COleDateTimeEx(FILETIME{0, 0}).GetAsSystemTime(back));
  EXPECT_EQ(back.wYear, 1601);
  EXPECT_EQ(back.wMonth, 1);
  EXPECT_EQ(back.wDay, 1);
}

TEST(OleDateTime, CurrentUtcTimeHasMilliseconds)
{
  using namespace std::chrono;
  const auto before = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  const COleDateTimeEx now = COleDateTimeEx::GetCurrentUtcTime();
  const auto after = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  ASSERT_EQ(now.GetStatus(), COleDateTimeEx::valid);
  // Back to Unix milliseconds: exact to the millisecond, not to the second.
  const double unixMs = (now.GetDate() - 25569.0) * 86400000.0;
  EXPECT_GE(std::llround(unixMs), before);
  EXPECT_LE(std::llround(unixMs), after);
}

TEST(OleDateTime, DoubleFromDateMirrorsNegativeFractions)
{
  EXPECT_EQ(COleDateTimeEx::DoubleFromDate(1.25), 1.25);
  EXPECT_EQ(COleDateTimeEx::DoubleFromDate(-1.25), -0.75);
  EXPECT_EQ(COleDateTimeEx::DoubleFromDate(-1.5), -0.5);
  EXPECT_EQ(COleDateTimeEx::DoubleFromDate(-1.75), -0.25);
  EXPECT_EQ(COleDateTimeEx::DoubleFromDate(-2.0), -2.0);
  EXPECT_EQ(COleDateTimeEx::DateFromDouble(-0.75), -1.25);
  EXPECT_EQ(COleDateTimeEx::DateFromDouble(-0.25), -1.75);
  EXPECT_EQ(COleDateTimeEx::DateFromDouble(0.25), 0.25);
  // Half a second decides which side of zero a value lies on.
  const double below = -0.4 / 86400.0;
  EXPECT_EQ(COleDateTimeEx::DoubleFromDate(below), below);
  EXPECT_EQ(COleDateTimeEx::DateFromDouble(below), below);
  EXPECT_NEAR(COleDateTimeEx::DoubleFromDate(-0.5 / 86400.0), 0.5 / 86400.0, 1e-15);
  // Half a second before the epoch is 1899-12-29 23:59:59.5: day -1, fraction 1 - half a second.
  EXPECT_NEAR(COleDateTimeEx::DateFromDouble(-0.5 / 86400.0), -2.0 + 0.5 / 86400.0, 1e-12);
}

TEST(OleDateTime, ArithmeticAcrossTheEpoch)
{
  const COleDateTimeEx before(-1.25); // 1899-12-29 06:00
  EXPECT_EQ((before + COleDateTimeSpan(1.0)).GetDate(), 0.25);
  EXPECT_EQ((before + COleDateTimeSpan(0.5)).GetDate(), -1.75); // 1899-12-29 18:00
  EXPECT_EQ((COleDateTimeEx(0.25) - COleDateTimeSpan(0.5)).GetDate(), -1.75);
  EXPECT_EQ((COleDateTimeEx(-1.75) - COleDateTimeEx(0.25)).GetTotalDays(), -0.5);
  EXPECT_EQ((COleDateTimeEx(0.25) - COleDateTimeEx(-1.25)).GetTotalDays(), 1.0);
  // Raw subtraction would give 1.5 here; the continuous line gives one day.
  EXPECT_EQ((COleDateTimeEx(-1.25) - COleDateTimeEx(-2.25)).GetTotalDays(), 1.0);
  // Subtracting minutes from a date (a UTC offset) stays on the calendar.
  const COleDateTimeEx local(Make(1899, 12, 30, 1, 0, 0));
  SYSTEMTIME utc{};
  ASSERT_TRUE((local - COleDateTimeSpan(0, 2, 0, 0)).GetAsSystemTime(utc));
  EXPECT_EQ(utc.wDay, 29);
  EXPECT_EQ(utc.wHour, 23);
}

TEST(OleDateTime, StatusPropagates)
{
  COleDateTimeEx nullDate;
  nullDate.SetStatus(COleDateTimeEx::null);
  EXPECT_EQ((nullDate + COleDateTimeSpan(1.0)).GetStatus(), COleDateTimeEx::null);
  EXPECT_EQ((COleDateTimeEx::GetCurrentUtcTime() - nullDate).GetStatus(), COleDateTimeSpan::null);
  COleDateTimeEx invalidDate;
  invalidDate.SetStatus(COleDateTimeEx::invalid);
  EXPECT_EQ((invalidDate - COleDateTimeSpan(1.0)).GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ((invalidDate - COleDateTimeEx()).GetStatus(), COleDateTimeSpan::invalid);
  // Leaving the calendar makes the result invalid.
  EXPECT_EQ((COleDateTimeEx(2958465.0) + COleDateTimeSpan(2.0)).GetStatus(), COleDateTimeEx::invalid);
}

TEST(OleDateTimeSpan, UnitsAndRange)
{
  EXPECT_DOUBLE_EQ(COleDateTimeSpan(0, 0, 1, 0).GetTotalDays(), 1.0 / 1440.0);
  EXPECT_DOUBLE_EQ(COleDateTimeSpan(0, 0, 1, 0).GetTotalSeconds(), 60.0);
  EXPECT_DOUBLE_EQ(COleDateTimeSpan(1, 12, 0, 0).GetTotalDays(), 1.5);
  EXPECT_EQ(COleDateTimeSpan(3615897.0).GetStatus(), COleDateTimeSpan::valid);
  EXPECT_EQ(COleDateTimeSpan(-3615897.0).GetStatus(), COleDateTimeSpan::valid);
  const COleDateTimeSpan tooLong(3615897.5);
  EXPECT_EQ(tooLong.GetStatus(), COleDateTimeSpan::invalid);
  EXPECT_EQ(tooLong.GetTotalDays(), 3615897.5); // the value is kept
  EXPECT_EQ(COleDateTimeSpan(-3615898.0).GetStatus(), COleDateTimeSpan::invalid);
  // A period in seconds far beyond the range (what SetUpdatePeriod may be given).
  EXPECT_EQ(COleDateTimeSpan(2147483647 / 86400.0 * 200).GetStatus(), COleDateTimeSpan::invalid);
}

TEST(OleDateTimeSpan, Arithmetic)
{
  const COleDateTimeSpan a(1.5), b(0.25);
  EXPECT_EQ((a + b).GetTotalDays(), 1.75);
  EXPECT_EQ((b - a).GetTotalDays(), -1.25);
  COleDateTimeSpan broken(1.0);
  broken.SetStatus(COleDateTimeSpan::invalid);
  EXPECT_EQ((a + broken).GetStatus(), COleDateTimeSpan::invalid);
  COleDateTimeSpan empty;
  empty.SetStatus(COleDateTimeSpan::null);
  EXPECT_EQ((a - empty).GetStatus(), COleDateTimeSpan::null);
  EXPECT_EQ((COleDateTimeSpan(3615897.0) + COleDateTimeSpan(1.0)).GetStatus(), COleDateTimeSpan::invalid);
}
