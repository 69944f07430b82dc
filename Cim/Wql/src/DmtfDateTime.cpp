#include "DmtfDateTime.h"

namespace cim::wql
{
namespace
{
bool Digits(std::wstring_view text, std::size_t pos, std::size_t count, std::uint32_t& out)
{
  out = 0;
  for (std::size_t i = pos; i < pos + count; ++i)
  {
    if (text[i] < L'0' || text[i] > L'9')
      return false;
    out = out * 10 + static_cast<std::uint32_t>(text[i] - L'0');
  }
  return true;
}

// Days of the proleptic Gregorian calendar counted from 0000-03-01 (years start in March so that
// the leap day falls at the end).
std::int64_t DayNumber(std::int64_t year, std::int64_t month, std::int64_t day)
{
  if (month <= 2)
  {
    year -= 1;
    month += 12;
  }
  const std::int64_t marchMonth = month - 3; // 0 = March ... 11 = February
  const std::int64_t dayOfYear = (153 * marchMonth + 2) / 5 + day - 1;
  return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear;
}
} // namespace

std::optional<DateTime> ParseDmtf(std::wstring_view text)
{
  if (text.size() != 25 || text[14] != L'.')
    return std::nullopt;
  DateTime value;
  std::uint32_t offset = 0;
  if (text[21] == L':')
  {
    value.isTimestamp = false;
    if (!Digits(text, 0, 8, value.days) || !Digits(text, 8, 2, value.hours) || !Digits(text, 10, 2, value.minutes) ||
        !Digits(text, 12, 2, value.seconds) || !Digits(text, 15, 6, value.microseconds) ||
        !Digits(text, 22, 3, offset) || offset != 0)
      return std::nullopt;
    return value;
  }
  if (text[21] != L'+' && text[21] != L'-')
    return std::nullopt;
  if (!Digits(text, 0, 4, value.year) || !Digits(text, 4, 2, value.month) || !Digits(text, 6, 2, value.day) ||
      !Digits(text, 8, 2, value.hour) || !Digits(text, 10, 2, value.minute) || !Digits(text, 12, 2, value.second) ||
      !Digits(text, 15, 6, value.microseconds) || !Digits(text, 22, 3, offset))
    return std::nullopt;
  if (value.month < 1 || value.month > 12 || value.day < 1 || value.day > 31 || value.hour > 23 ||
      value.minute > 59 || value.second > 60)
    return std::nullopt;
  value.utc = text[21] == L'-' ? -static_cast<std::int32_t>(offset) : static_cast<std::int32_t>(offset);
  return value;
}

DateTimeKey KeyOf(const DateTime& value)
{
  constexpr __int128 second = 1'000'000;
  DateTimeKey key;
  key.isTimestamp = value.isTimestamp;
  if (!value.isTimestamp)
  {
    key.microseconds = ((static_cast<__int128>(value.days) * 24 + value.hours) * 60 + value.minutes) * 60 * second +
                       static_cast<__int128>(value.seconds) * second + value.microseconds;
    return key;
  }
  const std::int64_t days = DayNumber(value.year, value.month, value.day);
  const __int128 minutes = (static_cast<__int128>(days) * 24 + value.hour) * 60 + value.minute - value.utc;
  key.microseconds = minutes * 60 * second + static_cast<__int128>(value.second) * second + value.microseconds;
  return key;
}
} // namespace cim::wql
