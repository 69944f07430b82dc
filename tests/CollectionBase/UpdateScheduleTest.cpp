// The pure arithmetic of the update schedule and the state words.
#include "CollectionBase.h"
#include "UpdateSchedule.h"

#include <climits>
#include <gtest/gtest.h>

using collector::ni::ICollectionTypes;
using collector::ni::impl::CCollectionBase;
using collector::ni::impl::ComputeUpdateDelayMs;
using collector::ni::impl::MakeUpdatePeriod;

namespace
{
COleDateTimeEx At(WORD hour, WORD minute, WORD second, WORD milliseconds)
{
  SYSTEMTIME time{};
  time.wYear = 2024;
  time.wMonth = 3;
  time.wDay = 14;
  time.wHour = hour;
  time.wMinute = minute;
  time.wSecond = second;
  time.wMilliseconds = milliseconds;
  return COleDateTimeEx(time);
}

COleDateTimeEx NullDate()
{
  COleDateTimeEx date;
  date.SetStatus(COleDateTimeEx::null);
  return date;
}
} // namespace

TEST(UpdatePeriod, SecondsBecomeDays)
{
  const COleDateTimeSpan period = MakeUpdatePeriod(60);
  EXPECT_DOUBLE_EQ(period.GetTotalDays(), 1.0 / 1440);
  EXPECT_EQ(period.GetStatus(), COleDateTimeSpan::valid);
}

TEST(UpdatePeriod, EveryThirtyTwoBitSecondCountIsValid)
{
  EXPECT_EQ(MakeUpdatePeriod(INT_MAX).GetStatus(), COleDateTimeSpan::valid);
  EXPECT_EQ(MakeUpdatePeriod(INT_MIN).GetStatus(), COleDateTimeSpan::valid);
  EXPECT_DOUBLE_EQ(MakeUpdatePeriod(INT_MIN).GetTotalDays(), INT_MIN / 86400.0);
}

TEST(UpdatePeriod, BeyondTheDateRangeIsInvalidButKeepsItsValue)
{
  const double limitSeconds = 3615897.0 * 86400.0;
  EXPECT_EQ(MakeUpdatePeriod(limitSeconds).GetStatus(), COleDateTimeSpan::valid);
  EXPECT_EQ(MakeUpdatePeriod(-limitSeconds).GetStatus(), COleDateTimeSpan::valid);
  const COleDateTimeSpan tooLong = MakeUpdatePeriod(limitSeconds + 86400.0);
  EXPECT_EQ(tooLong.GetStatus(), COleDateTimeSpan::invalid);
  EXPECT_DOUBLE_EQ(tooLong.GetTotalDays(), 3615898.0);
  EXPECT_EQ(MakeUpdatePeriod(-limitSeconds - 86400.0).GetStatus(), COleDateTimeSpan::invalid);
}

TEST(UpdateDelay, OverrunGivesZero)
{
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(1), At(10, 0, 0, 0), At(10, 0, 3, 0)), 0);
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(60), At(10, 0, 0, 0), At(10, 5, 0, 0)), 0);
}

TEST(UpdateDelay, RemainingFourTenthsOfASecondGivesZero)
{
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(1), At(10, 0, 0, 0), At(10, 0, 0, 600)), 0);
}

TEST(UpdateDelay, RemainingHalfSecondGivesOneSecond)
{
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(1), At(10, 0, 0, 0), At(10, 0, 0, 500)), 1000);
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(1), At(23, 59, 59, 0), At(23, 59, 59, 500)), 1000);
}

TEST(UpdateDelay, SixtySecondPeriodAfterTwelvePointFourSecondsGivesFortyEight)
{
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(60), At(10, 0, 0, 0), At(10, 0, 12, 400)), 48000);
}

TEST(UpdateDelay, InstantUpdateWaitsTheWholePeriod)
{
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(1), At(10, 0, 0, 0), At(10, 0, 0, 0)), 1000);
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(60), At(10, 0, 0, 0), At(10, 0, 0, 3)), 60000);
}

TEST(UpdateDelay, FailedBeforeStartCountsNoElapsedTime)
{
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(60), NullDate(), At(10, 0, 0, 0)), 60000);
  COleDateTimeEx invalid(At(10, 0, 0, 0));
  invalid.SetStatus(COleDateTimeEx::invalid);
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(5), invalid, At(10, 0, 4, 0)), 5000);
}

TEST(UpdateDelay, ZeroOrNegativePeriodGivesZero)
{
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(0), At(10, 0, 0, 0), At(10, 0, 0, 0)), 0);
  EXPECT_EQ(ComputeUpdateDelayMs(MakeUpdatePeriod(-30), At(10, 0, 0, 0), At(10, 0, 0, 0)), 0);
}

TEST(UpdateDelay, ElapsedBeforeEighteenNinetyNineFollowsTheOleRule)
{
  // -1.25 is 1899-12-29 06:00 and -1.5 is 1899-12-29 12:00: six hours apart, although the raw
  // values differ by minus a quarter day.
  const COleDateTimeSpan oneDay = MakeUpdatePeriod(86400);
  EXPECT_EQ(ComputeUpdateDelayMs(oneDay, COleDateTimeEx(-1.25), COleDateTimeEx(-1.5)), 18 * 3600 * 1000);
  // Across 1899-12-30 00:00: from 1899-12-29 18:00 (-1.75) to 1899-12-30 06:00 (0.25).
  EXPECT_EQ(ComputeUpdateDelayMs(oneDay, COleDateTimeEx(-1.75), COleDateTimeEx(0.25)), 12 * 3600 * 1000);
}

TEST(StateWords, PublicStates)
{
  EXPECT_STREQ(CCollectionBase::StateWord(ICollectionTypes::Error), L"Error");
  EXPECT_STREQ(CCollectionBase::StateWord(ICollectionTypes::Starting), L"Starting");
  EXPECT_STREQ(CCollectionBase::StateWord(ICollectionTypes::Running), L"Running");
  EXPECT_STREQ(CCollectionBase::StateWord(ICollectionTypes::Stopping), L"Stopping");
  EXPECT_STREQ(CCollectionBase::StateWord(ICollectionTypes::Stopped), L"Stopped");
  EXPECT_STREQ(CCollectionBase::StateWord(static_cast<ICollectionTypes::States>(0)), L"Unknown");
  EXPECT_STREQ(CCollectionBase::StateWord(static_cast<ICollectionTypes::States>(6)), L"Unknown");
}

TEST(StateWords, InternalStates)
{
  EXPECT_STREQ(CCollectionBase::InternalStateWord(0), L"Stopped");
  EXPECT_STREQ(CCollectionBase::InternalStateWord(1), L"Starting");
  EXPECT_STREQ(CCollectionBase::InternalStateWord(2), L"Running");
  EXPECT_STREQ(CCollectionBase::InternalStateWord(3), L"Stopping");
  EXPECT_STREQ(CCollectionBase::InternalStateWord(7), L"Stopping");
}

TEST(StateValues, MatchTheExportedNumbers)
{
  EXPECT_EQ(static_cast<int>(ICollectionTypes::Error), 1);
  EXPECT_EQ(static_cast<int>(ICollectionTypes::Starting), 2);
  EXPECT_EQ(static_cast<int>(ICollectionTypes::Running), 3);
  EXPECT_EQ(static_cast<int>(ICollectionTypes::Stopping), 4);
  EXPECT_EQ(static_cast<int>(ICollectionTypes::Stopped), 5);
  EXPECT_EQ(sizeof(ICollectionTypes::States), 4u);
}
