// CMiValue conversions on hand-made raw values: the whole table of source type codes against
// target types, integer widening and narrowing, real truncation, booleans, strings and the
// date-time rules (UTC offsets, intervals, days before the OLE epoch).
#include "MiValue.h"

#include "KeldaKernel/Exceptions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace
{
const wchar_t kMismatch[] = L"The value supplied is not compatible with the type";

MI_Value Raw() { return MI_Value{}; }

template <class T>
bool Converts(const CMiValue& value)
{
  try
  {
    const T result = value.Value();
    static_cast<void>(result);
    return true;
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(), kMismatch);
    return false;
  }
}

MI_Value StringValue(const MI_Char* text)
{
  MI_Value raw = Raw();
  raw.string = const_cast<MI_Char*>(text); // NOLINT(cppcoreguidelines-pro-type-const-cast): the API's union is not const
  return raw;
}

MI_Value Timestamp(unsigned year, unsigned month, unsigned day, unsigned hour, unsigned minute, unsigned second,
                   unsigned microseconds, int utc)
{
  MI_Value raw = Raw();
  raw.datetime.isTimestamp = 1;
  raw.datetime.u.timestamp = {year, month, day, hour, minute, second, microseconds, utc};
  return raw;
}

MI_Value Interval(unsigned days, unsigned hours, unsigned minutes, unsigned seconds, unsigned microseconds)
{
  MI_Value raw = Raw();
  raw.datetime.isTimestamp = 0;
  raw.datetime.u.interval = {days, hours, minutes, seconds, microseconds, 0, 0, 0};
  return raw;
}

COleDateTimeEx ReadDate(const MI_Value& raw)
{
  const CMiValue value(raw, MI_DATETIME);
  const COleDateTimeEx date = value.Value();
  return date;
}

// Y: converts, T: throws the type mismatch; columns __int64, unsigned int, wstring_view, date-time.
struct TableRow
{
  MI_Type type;
  bool toInt64;
  bool toUint;
  bool toView;
  bool toDate;
};

const TableRow kTable[] = {
  {MI_BOOLEAN, true, true, false, false}, {MI_UINT8, true, true, false, false},
  {MI_SINT8, true, true, false, false},   {MI_UINT16, true, true, false, false},
  {MI_SINT16, true, true, false, false},  {MI_UINT32, true, true, false, false},
  {MI_SINT32, true, true, false, false},  {MI_UINT64, true, true, false, false},
  {MI_SINT64, true, true, false, false},  {MI_REAL32, true, true, false, false},
  {MI_REAL64, true, true, false, false},  {MI_CHAR16, true, true, false, false},
  {MI_DATETIME, false, false, false, true}, {MI_STRING, false, false, true, false},
};

TEST(MiValueTable, EveryTypeCodeAgainstEveryTarget)
{
  static const MI_Char text[] = L"text";
  for (const TableRow& row : kTable)
  {
    SCOPED_TRACE(static_cast<int>(row.type));
    MI_Value raw = row.type == MI_STRING ? StringValue(text) : Raw();
    if (row.type == MI_DATETIME)
    {
      raw = Timestamp(2020, 1, 1, 0, 0, 0, 0, 0);
    }
    const CMiValue value(raw, row.type);
    EXPECT_EQ(Converts<__int64>(value), row.toInt64);
    EXPECT_EQ(Converts<unsigned int>(value), row.toUint);
    EXPECT_EQ(Converts<std::wstring_view>(value), row.toView);
    EXPECT_EQ(Converts<COleDateTimeEx>(value), row.toDate);
  }
}

TEST(MiValueTable, ArraysReferencesAndInstancesNeverConvert)
{
  for (int code : {14, 15, 16, 21, 29, 31})
  {
    SCOPED_TRACE(code);
    const CMiValue value(Raw(), static_cast<MI_Type>(code));
    EXPECT_FALSE(Converts<__int64>(value));
    EXPECT_FALSE(Converts<unsigned int>(value));
    EXPECT_FALSE(Converts<std::wstring_view>(value));
    EXPECT_FALSE(Converts<COleDateTimeEx>(value));
  }
}

TEST(MiValueTable, MismatchNamesTheConverterInMiValueHeader)
{
  static const MI_Char text[] = L"Name";
  const CMiValue value(StringValue(text), MI_STRING);
  try
  {
    const __int64 number = value.Value();
    static_cast<void>(number);
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(), kMismatch);
    const std::string function = get_throw_function(error);
    EXPECT_NE(function.find("Converter"), std::string::npos) << function;
    EXPECT_NE(function.find("Convert"), std::string::npos) << function;
    EXPECT_NE(get_throw_file(error).find("MiValue.h"), std::string::npos);
  }
}

TEST(MiValueTable, UnknownTypeCodeThrowsFromGetValue)
{
  const CMiValue value(Raw(), MI_REFERENCE);
  try
  {
    const __int64 number = value.Value();
    static_cast<void>(number);
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(), kMismatch);
    EXPECT_NE(get_throw_function(error).find("getValue"), std::string::npos) << get_throw_function(error);
  }
}

TEST(MiValueIntegers, SignedSourcesAreSignExtended)
{
  MI_Value raw = Raw();
  raw.sint8 = -5;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_SINT8).Value()), -5);
  raw = Raw();
  raw.sint16 = -300;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_SINT16).Value()), -300);
  raw = Raw();
  raw.sint32 = std::numeric_limits<MI_Sint32>::min();
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_SINT32).Value()), std::numeric_limits<MI_Sint32>::min());
  raw = Raw();
  raw.sint64 = std::numeric_limits<MI_Sint64>::min();
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_SINT64).Value()), std::numeric_limits<__int64>::min());
}

TEST(MiValueIntegers, UnsignedSourcesAreZeroExtended)
{
  MI_Value raw = Raw();
  raw.uint8 = 200;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_UINT8).Value()), 200);
  raw = Raw();
  raw.uint16 = 65535;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_UINT16).Value()), 65535);
  raw = Raw();
  raw.uint32 = 4294967295u;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_UINT32).Value()), 4294967295LL);
}

TEST(MiValueIntegers, Uint64KeepsItsBitPattern)
{
  MI_Value raw = Raw();
  raw.uint64 = std::numeric_limits<MI_Uint64>::max();
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_UINT64).Value()), -1);
}

TEST(MiValueIntegers, UnsignedIntKeepsTheLow32Bits)
{
  MI_Value raw = Raw();
  raw.uint64 = 0x100000005ULL;
  EXPECT_EQ(static_cast<unsigned int>(CMiValue(raw, MI_UINT64).Value()), 5u);
  raw = Raw();
  raw.sint64 = -1;
  EXPECT_EQ(static_cast<unsigned int>(CMiValue(raw, MI_SINT64).Value()), 0xFFFFFFFFu);
  raw = Raw();
  raw.sint8 = -1;
  EXPECT_EQ(static_cast<unsigned int>(CMiValue(raw, MI_SINT8).Value()), 0xFFFFFFFFu);
  raw = Raw();
  raw.real64 = 7.99;
  EXPECT_EQ(static_cast<unsigned int>(CMiValue(raw, MI_REAL64).Value()), 7u);
}

TEST(MiValueIntegers, BooleanByteTwoReadsAsOne)
{
  MI_Value raw = Raw();
  raw.boolean = 2;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_BOOLEAN).Value()), 1);
  EXPECT_EQ(static_cast<unsigned int>(CMiValue(raw, MI_BOOLEAN).Value()), 1u);
  raw.boolean = 0;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_BOOLEAN).Value()), 0);
}

TEST(MiValueIntegers, Char16IsItsCodeUnit)
{
  MI_Value raw = Raw();
  raw.char16 = 0xFFFF;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_CHAR16).Value()), 0xFFFF);
}

TEST(MiValueReals, TruncatedTowardZero)
{
  MI_Value raw = Raw();
  raw.real64 = 2.9;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_REAL64).Value()), 2);
  raw.real64 = -2.9;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_REAL64).Value()), -2);
  raw = Raw();
  raw.real32 = -7.5F;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_REAL32).Value()), -7);
}

TEST(MiValueReals, OutOfRangeGivesTheMinimum)
{
  constexpr __int64 minimum = std::numeric_limits<__int64>::min();
  EXPECT_EQ(TruncateReal(1e19), minimum);
  EXPECT_EQ(TruncateReal(-1e19), minimum);
  EXPECT_EQ(TruncateReal(9223372036854775808.0), minimum);
  EXPECT_EQ(TruncateReal(std::nan("")), minimum);
  EXPECT_EQ(TruncateReal(std::numeric_limits<double>::infinity()), minimum);
  EXPECT_EQ(TruncateReal(-9223372036854775808.0), minimum);
  EXPECT_EQ(TruncateReal(9007199254740992.0), 9007199254740992LL);
  MI_Value raw = Raw();
  raw.real32 = 3e30F;
  EXPECT_EQ(static_cast<__int64>(CMiValue(raw, MI_REAL32).Value()), minimum);
}

TEST(MiValueStrings, ViewOverTheApiStringUpToItsNul)
{
  static const MI_Char text[] = L"abc\0def";
  const CMiValue value(StringValue(text), MI_STRING);
  const std::wstring_view view = value.Value();
  EXPECT_EQ(view, L"abc");
  EXPECT_EQ(view.data(), text);
}

TEST(MiValueStrings, NullPointerReadsAsEmpty)
{
  const CMiValue value(StringValue(nullptr), MI_STRING, MI_FLAG_NULL);
  EXPECT_TRUE(value.IsNull());
  const std::wstring_view view = value.Value();
  EXPECT_TRUE(view.empty());
}

TEST(MiValueFlags, DefaultValueIsNull)
{
  const CMiValue value;
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ(value.GetFlags(), static_cast<MI_Uint32>(MI_FLAG_NULL));
  EXPECT_EQ(value.GetPropertyDecl(), nullptr);
  EXPECT_FALSE(CMiValue(Raw(), MI_UINT8, MI_FLAG_KEY).IsNull());
}

TEST(MiValueDates, TimestampIsMovedToUtcByItsOffset)
{
  const COleDateTimeEx date = ReadDate(Timestamp(2020, 1, 1, 12, 0, 0, 0, 120));
  EXPECT_EQ(date.GetStatus(), COleDateTimeEx::valid);
  EXPECT_DOUBLE_EQ(date.GetDate(), COleDateTimeEx(2020, 1, 1, 10, 0, 0).GetDate());
}

TEST(MiValueDates, WestOfUtcMovesForward)
{
  const COleDateTimeEx date = ReadDate(Timestamp(2020, 1, 1, 23, 30, 0, 0, -60));
  EXPECT_DOUBLE_EQ(date.GetDate(), COleDateTimeEx(2020, 1, 2, 0, 30, 0).GetDate());
}

TEST(MiValueDates, MillisecondsComeFromMicroseconds)
{
  const COleDateTimeEx date = ReadDate(Timestamp(2021, 6, 15, 8, 9, 10, 123999, 0));
  SYSTEMTIME time{};
  ASSERT_TRUE(date.GetAsSystemTime(time));
  EXPECT_EQ(time.wYear, 2021);
  EXPECT_EQ(time.wMonth, 6);
  EXPECT_EQ(time.wDay, 15);
  EXPECT_EQ(time.wHour, 8);
  EXPECT_EQ(time.wMinute, 9);
  EXPECT_EQ(time.wSecond, 10);
  EXPECT_EQ(time.wMilliseconds, 123);
}

TEST(MiValueDates, OffsetAcrossTheEpochUsesOleNegativeDates)
{
  // 1899-12-30 00:30 at UTC+1 is 1899-12-29 23:30 UTC: day -1 with a positive time fraction.
  const COleDateTimeEx date = ReadDate(Timestamp(1899, 12, 30, 0, 30, 0, 0, 60));
  EXPECT_EQ(date.GetStatus(), COleDateTimeEx::valid);
  EXPECT_NEAR(date.GetDate(), -1.0 - 23.5 / 24.0, 1e-9);
  EXPECT_NEAR(date.GetDate(), COleDateTimeEx(1899, 12, 29, 23, 30, 0).GetDate(), 1e-9);
}

TEST(MiValueDates, InvalidTimestampGivesAnInvalidDate)
{
  EXPECT_EQ(ReadDate(Timestamp(2020, 13, 1, 0, 0, 0, 0, 0)).GetStatus(), COleDateTimeEx::invalid);
  EXPECT_EQ(ReadDate(Timestamp(2020, 2, 30, 0, 0, 0, 0, 0)).GetStatus(), COleDateTimeEx::invalid);
}

TEST(MiValueDates, IntervalIsItsLengthInDays)
{
  EXPECT_DOUBLE_EQ(ReadDate(Interval(1, 12, 0, 0, 0)).GetDate(), 1.5);
  // Microseconds are dropped.
  EXPECT_DOUBLE_EQ(ReadDate(Interval(0, 0, 1, 30, 999999)).GetDate(), 1.0 / 1440.0 + 30.0 / 86400.0);
}
} // namespace
