// Level mapping, internal identifier and the "SystemTime" parse of an event record.
#include "EventValues.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

namespace
{
using namespace collector::ni::impl;

SYSTEMTIME AsSystemTime(const COleDateTimeEx& time)
{
  SYSTEMTIME st{};
  EXPECT_TRUE(time.GetAsSystemTime(st));
  return st;
}

TEST(EventTypeFromLevel, CriticalAndErrorGiveOne)
{
  EXPECT_EQ(EventTypeFromLevel(1), 1);
  EXPECT_EQ(EventTypeFromLevel(2), 1);
}

TEST(EventTypeFromLevel, WarningGivesTwo)
{
  EXPECT_EQ(EventTypeFromLevel(3), 2);
}

TEST(EventTypeFromLevel, InformationLogAlwaysAndOthersGiveThree)
{
  EXPECT_EQ(EventTypeFromLevel(0), 3);
  EXPECT_EQ(EventTypeFromLevel(4), 3);
  EXPECT_EQ(EventTypeFromLevel(5), 3);
  EXPECT_EQ(EventTypeFromLevel(255), 3);
  EXPECT_EQ(EventTypeFromLevel(-1), 3);
}

TEST(MakeInternalId, PutsQualifiersAboveTheEventId)
{
  EXPECT_EQ(MakeInternalId(16384, 7036), 1073748860);
  EXPECT_EQ(MakeInternalId(0, 4624), 4624);
  EXPECT_EQ(MakeInternalId(32768, 6009), (32768LL << 16) | 6009);
}

TEST(ParseEventTime, RoundsSevenDigitFractionToMilliseconds)
{
  const COleDateTimeEx time = ParseEventTime(L"2024-05-01T10:20:30.1234567Z");
  ASSERT_EQ(time.GetStatus(), COleDateTimeEx::valid);
  const SYSTEMTIME st = AsSystemTime(time);
  EXPECT_EQ(st.wYear, 2024);
  EXPECT_EQ(st.wMonth, 5);
  EXPECT_EQ(st.wDay, 1);
  EXPECT_EQ(st.wHour, 10);
  EXPECT_EQ(st.wMinute, 20);
  EXPECT_EQ(st.wSecond, 30);
  EXPECT_EQ(st.wMilliseconds, 123);
}

TEST(ParseEventTime, RoundsHalfAMillisecondUp)
{
  // .0625 is exact in binary: 62.5 ms rounds away from zero.
  EXPECT_EQ(AsSystemTime(ParseEventTime(L"2016-07-08T18:12:51.0625Z")).wMilliseconds, 63);
  EXPECT_EQ(AsSystemTime(ParseEventTime(L"2016-07-08T18:12:51.6814999Z")).wMilliseconds, 681);
  // The fraction is taken in double arithmetic: 51.6815 - 51 is just below 0.6815.
  EXPECT_EQ(AsSystemTime(ParseEventTime(L"2016-07-08T18:12:51.6815Z")).wMilliseconds, 681);
}

TEST(ParseEventTime, AFractionThatRoundsToAThousandMillisecondsIsTheNextSecond)
{
  const SYSTEMTIME st = AsSystemTime(ParseEventTime(L"2018-12-31T23:59:59.9996Z"));
  EXPECT_EQ(st.wYear, 2019);
  EXPECT_EQ(st.wMonth, 1);
  EXPECT_EQ(st.wDay, 1);
  EXPECT_EQ(st.wHour, 0);
  EXPECT_EQ(st.wMinute, 0);
  EXPECT_EQ(st.wSecond, 0);
  EXPECT_EQ(st.wMilliseconds, 0);
  EXPECT_EQ(ParseEventTime(L"2018-02-30T23:59:59.9996Z").GetStatus(), COleDateTimeEx::invalid);
}

TEST(ParseEventTime, FiveFieldsAreInvalid)
{
  EXPECT_EQ(ParseEventTime(L"2024-05-01T10:20Z").GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ScanEventTime(L"2024-05-01T10:20Z").Items, 5);
}

TEST(ParseEventTime, EmptyAndGarbageAreInvalid)
{
  EXPECT_EQ(ParseEventTime(L"").GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ParseEventTime(L"yesterday").GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ScanEventTime(L"2024/05/01").Items, 1);
}

TEST(ParseEventTime, WholeSecondsAndMissingZoneLetterAreRead)
{
  // The 'Z' follows the last conversion: without it the six items are still there.
  const COleDateTimeEx time = ParseEventTime(L"2024-05-01T10:20:30");
  ASSERT_EQ(time.GetStatus(), COleDateTimeEx::valid);
  EXPECT_EQ(AsSystemTime(time).wSecond, 30);
  EXPECT_EQ(AsSystemTime(time).wMilliseconds, 0);
}

TEST(ParseEventTime, ScansLikeTheRuntime)
{
  // Conversions skip white space and take a sign; literals must match exactly.
  const SScannedEventTime scanned = ScanEventTime(L" 2024- 5-+1T10:20:3.5e1Z");
  EXPECT_EQ(scanned.Items, 6);
  EXPECT_EQ(scanned.Year, 2024);
  EXPECT_EQ(scanned.Month, 5);
  EXPECT_EQ(scanned.Day, 1);
  EXPECT_DOUBLE_EQ(scanned.Seconds, 35.0);
  EXPECT_EQ(ScanEventTime(L"2024 -05").Items, 1);
  // A short keeps the low 16 bits of what it reads.
  EXPECT_EQ(ScanEventTime(L"65537-1").Year, 1);
}

TEST(ParseEventTime, SecondsAreTheDoubleTheRuntimeReads)
{
  // Every text the scanner reads as digits is read to the same double as strtod reads it.
  std::uint64_t state = 88172645463325252ull;
  for (int i = 0; i < 20000; ++i)
  {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    const int digits = 1 + static_cast<int>(state % 9);
    std::string seconds = std::to_string(state % 60) + "." + std::to_string(state / 60).substr(0, digits);
    if (i % 3 == 0)
      seconds.insert(0, "-");
    const std::wstring text = L"2024-05-01T10:20:" + std::wstring(seconds.begin(), seconds.end()) + L"Z";
    const SScannedEventTime scanned = ScanEventTime(text);
    ASSERT_EQ(scanned.Items, 6) << seconds;
    ASSERT_EQ(scanned.Seconds, std::strtod(seconds.c_str(), nullptr)) << seconds;
  }
}

TEST(ParseEventTime, TheUsualLayoutReadsAsTheGeneralScan)
{
  // A leading space takes the general path; the fields must not differ.
  for (const std::wstring text : {L"2024-05-01T10:20:30.1234567Z", L"0001-12-31T23:59:59.9995Z",
                                  L"9999-00-99T99:00:7e1Z", L"2024-05-01T10:20:Z", L"2024-05-01T10:20:-0.5Z",
                                  L"2024-05-01T10:20:30.Z", L"2024-05-01T10:20:.5Z", L"2024-05-01T10:20:30.5e",
                                  L"2024-05-01T10:20:30.5E+1Z", L"2024-05-01T10:20:12.3456789012345Z",
                                  L"2024-05-01T10:20:12.34567890123456Z", L"2024-05-01T10:20:000000000000000030.5Z",
                                  L"2024-05-01T10:20:30", L"2024-05-01T10:20:.Z", L"2024-05-01T10:20:+3Z"})
  {
    const SScannedEventTime fixed = ScanEventTime(text);
    const SScannedEventTime general = ScanEventTime(L" " + text);
    EXPECT_EQ(fixed.Items, general.Items);
    EXPECT_EQ(fixed.Year, general.Year);
    EXPECT_EQ(fixed.Month, general.Month);
    EXPECT_EQ(fixed.Day, general.Day);
    EXPECT_EQ(fixed.Hour, general.Hour);
    EXPECT_EQ(fixed.Minute, general.Minute);
    EXPECT_EQ(fixed.Seconds, general.Seconds);
  }
}

TEST(ParseEventTime, SecondsOfTheUsualLayout)
{
  // Each the double nearest the decimal text, as the compiler reads the literal.
  const std::pair<const wchar_t*, double> cases[] = {
    {L"2024-05-01T10:20:30.1234567Z", 30.1234567},   {L"2018-08-07T19:29:24.5282279Z", 24.5282279},
    {L"2024-05-01T10:20:59.9999999Z", 59.9999999},   {L"2024-05-01T10:20:00.0000001Z", 0.0000001},
    {L"2024-05-01T10:20:7Z", 7.0},                   {L"2024-05-01T10:20:12.3456789012345Z", 12.3456789012345},
    {L"2024-05-01T10:20:12.34567890123456Z", 12.34567890123456}, {L"2024-05-01T10:20:30.5e1Z", 305.0},
    {L"2024-05-01T10:20:.25Z", 0.25},                {L"2024-05-01T10:20:30.", 30.0}};
  for (const auto& [text, seconds] : cases)
  {
    const SScannedEventTime scanned = ScanEventTime(text);
    EXPECT_EQ(scanned.Items, 6) << text;
    EXPECT_EQ(scanned.Seconds, seconds) << text;
  }
  // No digit: the seconds are not read.
  EXPECT_EQ(ScanEventTime(L"2024-05-01T10:20:.Z").Items, 5);
  EXPECT_EQ(ScanEventTime(L"2024-05-01T10:20:Z").Items, 5);
}

TEST(ParseEventTime, FieldsOutOfRangeAreInvalid)
{
  EXPECT_EQ(ParseEventTime(L"2024-13-01T10:20:30Z").GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ParseEventTime(L"2024-02-30T10:20:30Z").GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ParseEventTime(L"2024-05-01T24:00:00Z").GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ParseEventTime(L"2024-05-01T10:20:-1Z").GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ParseEventTime(L"-2024-05-01T10:20:30Z").GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ParseEventTime(L"2024-05-01T10:20:1e999Z").GetStatus(), COleDateTimeEx::invalid);
}
} // namespace
