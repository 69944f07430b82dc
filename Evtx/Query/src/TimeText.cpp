#include "TimeText.h"

#include "Evtx/Query/Query.h"

#include <chrono>

namespace evtx::query
{
namespace
{
bool ReadDigits(std::wstring_view& text, std::size_t count, int& value)
{
  if (text.size() < count)
    return false;
  value = 0;
  for (std::size_t i = 0; i < count; ++i)
  {
    if (text[i] < L'0' || text[i] > L'9')
      return false;
    value = value * 10 + (text[i] - L'0');
  }
  text.remove_prefix(count);
  return true;
}

bool Expect(std::wstring_view& text, wchar_t c)
{
  if (text.empty() || text.front() != c)
    return false;
  text.remove_prefix(1);
  return true;
}

// Days between 1601-01-01 and 1970-01-01.
constexpr std::int64_t kEpochDays1601To1970 = 134774;
constexpr std::int64_t kTicksPerSecond = 10'000'000;
} // namespace

std::optional<std::uint64_t> ParseSystemTime(std::wstring_view text)
{
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (!ReadDigits(text, 4, year) || !Expect(text, L'-') || !ReadDigits(text, 2, month) || !Expect(text, L'-') ||
      !ReadDigits(text, 2, day) || !Expect(text, L'T') || !ReadDigits(text, 2, hour) || !Expect(text, L':') ||
      !ReadDigits(text, 2, minute) || !Expect(text, L':') || !ReadDigits(text, 2, second))
    return std::nullopt;
  std::int64_t fraction = 0;
  if (!text.empty() && text.front() == L'.')
  {
    text.remove_prefix(1);
    std::int64_t scale = kTicksPerSecond / 10;
    std::size_t digits = 0;
    while (!text.empty() && text.front() >= L'0' && text.front() <= L'9')
    {
      fraction += (text.front() - L'0') * scale;
      scale /= 10;
      text.remove_prefix(1);
      ++digits;
    }
    if (digits == 0)
      return std::nullopt;
  }
  if (!text.empty() && !Expect(text, L'Z'))
    return std::nullopt;
  if (!text.empty() || year < 1601 || month < 1 || month > 12 || day < 1 || hour > 23 || minute > 59 || second > 60)
    return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                                         std::chrono::day{static_cast<unsigned>(day)}};
  if (!date.ok())
    return std::nullopt;
  const std::int64_t days = std::chrono::sys_days{date}.time_since_epoch().count() + kEpochDays1601To1970;
  const std::int64_t seconds = days * 86400 + std::int64_t{hour} * 3600 + std::int64_t{minute} * 60 + second;
  return static_cast<std::uint64_t>(seconds * kTicksPerSecond + fraction);
}

std::uint64_t CurrentFileTime()
{
  using namespace std::chrono;
  const auto since1970 = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count() / 100;
  return static_cast<std::uint64_t>(since1970 + kEpochDays1601To1970 * 86400 * kTicksPerSecond);
}
} // namespace evtx::query
