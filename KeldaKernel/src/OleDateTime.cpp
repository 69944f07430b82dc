// OLE automation dates. The calendar math works on whole days and milliseconds in integers;
// doubles appear only at the edges, so a date survives a round trip to the millisecond.
#include "KeldaKernel/OleDateTime.h"

#include <chrono>
#include <cmath>
#include <cstdint>

namespace
{
constexpr std::int64_t msPerDay = 86400000;
// 0100-01-01 and 9999-12-31, the range OLE automation accepts.
constexpr double minDate = -657434.0;
constexpr double maxDate = 2958466.0; // exclusive: the end of 9999-12-31
constexpr double halfSecond = 0.5 / 86400.0;

bool IsLeap(std::int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(std::int64_t year, int month)
{
  constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : days[month - 1];
}

// Days from 1899-12-30 to the given proleptic Gregorian date (eras of 400 years).
std::int64_t DayNumber(std::int64_t year, int month, int day)
{
  const std::int64_t y = month <= 2 ? year - 1 : year;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const std::int64_t yearOfEra = y - era * 400;
  const std::int64_t monthFromMarch = month > 2 ? month - 3 : month + 9;
  const std::int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  // 693899 is the day count from 0000-03-01 to 1899-12-30.
  return era * 146097 + dayOfEra - 693899;
}

struct CivilDate
{
  std::int64_t year;
  int month;
  int day;
};

CivilDate FromDayNumber(std::int64_t dayNumber)
{
  const std::int64_t z = dayNumber + 693899;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const std::int64_t dayOfEra = z - era * 146097;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
  const int day = static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
  const int month = static_cast<int>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

std::int64_t FloorDiv(std::int64_t a, std::int64_t b)
{
  const std::int64_t q = a / b;
  return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

// A day number and the milliseconds into that day as an OLE date: before the epoch the
// day part is negative while the time of day still counts forward.
double ToOleDate(std::int64_t dayNumber, std::int64_t msOfDay)
{
  const double fraction = static_cast<double>(msOfDay) / static_cast<double>(msPerDay);
  const auto days = static_cast<double>(dayNumber);
  return dayNumber >= 0 ? days + fraction : days - fraction;
}

bool InDateRange(double date) { return !std::isnan(date) && date >= minDate && date < maxDate; }

COleDateTimeEx FromMilliseconds(std::int64_t msSinceEpoch, std::int64_t epochDayNumber)
{
  const std::int64_t day = FloorDiv(msSinceEpoch, msPerDay);
  return COleDateTimeEx(ToOleDate(day + epochDayNumber, msSinceEpoch - day * msPerDay));
}
} // namespace

// ---- COleDateTimeSpan ----

COleDateTimeSpan::COleDateTimeSpan(double days) noexcept : m_span(days)
{
  if (std::isnan(days) || days > maxDays || days < -maxDays)
    m_status = invalid;
}

COleDateTimeSpan::COleDateTimeSpan(long days, int hours, int minutes, int seconds) noexcept
  : COleDateTimeSpan(static_cast<double>(days) + hours / 24.0 + minutes / 1440.0 + seconds / 86400.0)
{
}

double COleDateTimeSpan::GetTotalSeconds() const noexcept { return m_span * 86400.0; }

namespace
{
COleDateTimeSpan CombineSpans(const COleDateTimeSpan& a, const COleDateTimeSpan& b, double value)
{
  if (a.GetStatus() == COleDateTimeSpan::null || b.GetStatus() == COleDateTimeSpan::null)
  {
    COleDateTimeSpan result;
    result.SetStatus(COleDateTimeSpan::null);
    return result;
  }
  COleDateTimeSpan result(value);
  if (a.GetStatus() == COleDateTimeSpan::invalid || b.GetStatus() == COleDateTimeSpan::invalid)
    result.SetStatus(COleDateTimeSpan::invalid);
  return result;
}
} // namespace

COleDateTimeSpan COleDateTimeSpan::operator-(const COleDateTimeSpan& other) const noexcept
{
  return CombineSpans(*this, other, m_span - other.m_span);
}

COleDateTimeSpan COleDateTimeSpan::operator+(const COleDateTimeSpan& other) const noexcept
{
  return CombineSpans(*this, other, m_span + other.m_span);
}

// ---- COleDateTimeEx ----

COleDateTimeEx::COleDateTimeEx(double date) noexcept : m_dt(date)
{
  if (!InDateRange(date))
    m_status = invalid;
}

COleDateTimeEx::COleDateTimeEx(const SYSTEMTIME& time) noexcept
{
  if (!SystemTimeToVariantTimeWithMilliseconds(time, &m_dt))
  {
    m_dt = 0.0;
    m_status = invalid;
  }
}

COleDateTimeEx::COleDateTimeEx(const FILETIME& time) noexcept
{
  const std::uint64_t ticks = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  // 100 ns ticks to milliseconds, rounded; 1601-01-01 is day -109205 of the OLE calendar.
  const auto ms = static_cast<std::int64_t>((ticks + 5000) / 10000);
  *this = FromMilliseconds(ms, -109205);
}

COleDateTimeEx::COleDateTimeEx(int year, int month, int day, int hour, int minute, int second) noexcept
{
  // Out-of-range values must not wrap into valid WORD fields.
  const auto inWord = [](int value) { return value >= 0 && value <= 0xFFFF; };
  if (!inWord(year) || !inWord(month) || !inWord(day) || !inWord(hour) || !inWord(minute) || !inWord(second))
  {
    m_status = invalid;
    return;
  }
  SYSTEMTIME time{};
  time.wYear = static_cast<WORD>(year);
  time.wMonth = static_cast<WORD>(month);
  time.wDay = static_cast<WORD>(day);
  time.wHour = static_cast<WORD>(hour);
  time.wMinute = static_cast<WORD>(minute);
  time.wSecond = static_cast<WORD>(second);
  *this = COleDateTimeEx(time);
}

COleDateTimeEx COleDateTimeEx::GetCurrentUtcTime() noexcept
{
  using namespace std::chrono;
  const auto ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  // 1970-01-01 is day 25569 of the OLE calendar.
  return FromMilliseconds(ms, 25569);
}

bool COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(const SYSTEMTIME& time, double* date) noexcept
{
  if (date == nullptr)
    return false;
  if (time.wYear < 100 || time.wYear > 9999 || time.wMonth < 1 || time.wMonth > 12 || time.wDay < 1 ||
      time.wDay > DaysInMonth(time.wYear, time.wMonth) || time.wHour > 23 || time.wMinute > 59 ||
      time.wSecond > 59 || time.wMilliseconds > 999)
    return false;
  const std::int64_t ms =
    ((std::int64_t{time.wHour} * 60 + time.wMinute) * 60 + time.wSecond) * 1000 + time.wMilliseconds;
  *date = ToOleDate(DayNumber(time.wYear, time.wMonth, time.wDay), ms);
  return true;
}

bool COleDateTimeEx::VariantTimeToSystemTimeWithMilliseconds(double date, SYSTEMTIME* time) noexcept
{
  if (time == nullptr || !InDateRange(date))
    return false;
  // On the continuous line a plain floor splits day and time of day, negative dates included.
  const auto totalMs = static_cast<std::int64_t>(std::llround(DoubleFromDate(date) * static_cast<double>(msPerDay)));
  const std::int64_t day = FloorDiv(totalMs, msPerDay);
  std::int64_t ms = totalMs - day * msPerDay;
  const CivilDate civil = FromDayNumber(day);
  if (civil.year < 100 || civil.year > 9999)
    return false;
  time->wYear = static_cast<WORD>(civil.year);
  time->wMonth = static_cast<WORD>(civil.month);
  time->wDay = static_cast<WORD>(civil.day);
  // 1899-12-30 was a Saturday (6); Sunday is 0.
  time->wDayOfWeek = static_cast<WORD>(((day % 7) + 7 + 6) % 7);
  time->wMilliseconds = static_cast<WORD>(ms % 1000);
  ms /= 1000;
  time->wSecond = static_cast<WORD>(ms % 60);
  ms /= 60;
  time->wMinute = static_cast<WORD>(ms % 60);
  time->wHour = static_cast<WORD>(ms / 60);
  return true;
}

bool COleDateTimeEx::GetAsSystemTime(SYSTEMTIME& time) const noexcept
{
  return m_status == valid && VariantTimeToSystemTimeWithMilliseconds(m_dt, &time);
}

double COleDateTimeEx::DoubleFromDate(double date) noexcept
{
  // Values within half a second below zero count as the epoch itself.
  if (date > -halfSecond)
    return date;
  const double whole = std::ceil(date);
  return whole - (date - whole);
}

double COleDateTimeEx::DateFromDouble(double value) noexcept
{
  if (value > -halfSecond)
    return value;
  const double whole = std::floor(value);
  return whole + (whole - value);
}

namespace
{
COleDateTimeEx Shift(const COleDateTimeEx& date, const COleDateTimeSpan& span, double days)
{
  COleDateTimeEx result;
  if (date.GetStatus() == COleDateTimeEx::null || span.GetStatus() == COleDateTimeSpan::null)
  {
    result.SetStatus(COleDateTimeEx::null);
    return result;
  }
  if (date.GetStatus() == COleDateTimeEx::invalid || span.GetStatus() == COleDateTimeSpan::invalid)
  {
    result.SetStatus(COleDateTimeEx::invalid);
    return result;
  }
  return COleDateTimeEx(COleDateTimeEx::DateFromDouble(COleDateTimeEx::DoubleFromDate(date.GetDate()) + days));
}
} // namespace

COleDateTimeEx COleDateTimeEx::operator+(const COleDateTimeSpan& span) const noexcept
{
  return Shift(*this, span, span.GetTotalDays());
}

COleDateTimeEx COleDateTimeEx::operator-(const COleDateTimeSpan& span) const noexcept
{
  return Shift(*this, span, -span.GetTotalDays());
}

COleDateTimeSpan COleDateTimeEx::operator-(const COleDateTimeEx& other) const noexcept
{
  COleDateTimeSpan result;
  if (m_status == null || other.m_status == null)
  {
    result.SetStatus(COleDateTimeSpan::null);
    return result;
  }
  if (m_status == invalid || other.m_status == invalid)
  {
    result.SetStatus(COleDateTimeSpan::invalid);
    return result;
  }
  return COleDateTimeSpan(DoubleFromDate(m_dt) - DoubleFromDate(other.m_dt));
}
