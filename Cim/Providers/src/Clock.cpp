#include "Cim/Machine/Clock.h"

#include <ctime>
#include <unistd.h>

namespace cim::machine
{
namespace
{
// 1601-01-01 to 1970-01-01 in 100 ns units.
constexpr std::uint64_t FileTimeEpochOffset = 116'444'736'000'000'000ULL;

std::uint64_t To100ns(const timespec& time)
{
  return static_cast<std::uint64_t>(time.tv_sec) * Units100nsPerSecond + static_cast<std::uint64_t>(time.tv_nsec) / 100;
}

// Ticks of `frequency` in a time, without overflow for any uptime.
std::uint64_t ToTicks(const timespec& time, std::uint64_t frequency)
{
  constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;
  return static_cast<std::uint64_t>(time.tv_sec) * frequency +
         static_cast<std::uint64_t>(time.tv_nsec) * frequency / nanosecondsPerSecond;
}

// Days since 1970-01-01 to a civil date (proleptic Gregorian).
void CivilFromDays(std::int64_t days, std::int64_t& year, std::uint32_t& month, std::uint32_t& day)
{
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto dayOfEra = static_cast<std::uint64_t>(days - era * 146097);
  const auto yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const auto dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const auto monthIndex = (5 * dayOfYear + 2) / 153;
  day = static_cast<std::uint32_t>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
  month = static_cast<std::uint32_t>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
  year = static_cast<std::int64_t>(yearOfEra) + era * 400 + (month <= 2 ? 1 : 0);
}
} // namespace

PerfStamp SamplePerfStamp(std::uint64_t frequency)
{
  PerfStamp stamp;
  stamp.frequency = frequency == 0 ? MachinePerfFrequency : frequency;
  timespec time{};
  if (clock_gettime(CLOCK_BOOTTIME, &time) == 0)
  {
    stamp.perfTime = ToTicks(time, stamp.frequency);
    stamp.boot100ns = To100ns(time);
  }
  if (clock_gettime(CLOCK_REALTIME, &time) == 0)
    stamp.sys100ns = To100ns(time) + FileTimeEpochOffset;
  return stamp;
}

std::uint64_t TicksPerSecond()
{
  static const std::uint64_t ticks = [] {
    const long value = sysconf(_SC_CLK_TCK);
    return value > 0 ? static_cast<std::uint64_t>(value) : 100;
  }();
  return ticks;
}

DateTime ToDateTime(std::int64_t unixSeconds, std::uint32_t microseconds, std::int32_t utcOffsetMinutes)
{
  const std::int64_t local = unixSeconds + std::int64_t{utcOffsetMinutes} * 60;
  std::int64_t days = local / 86400;
  std::int64_t secondsOfDay = local % 86400;
  if (secondsOfDay < 0)
  {
    secondsOfDay += 86400;
    --days;
  }
  DateTime result;
  std::int64_t year = 0;
  CivilFromDays(days, year, result.month, result.day);
  result.year = static_cast<std::uint32_t>(year);
  result.hour = static_cast<std::uint32_t>(secondsOfDay / 3600);
  result.minute = static_cast<std::uint32_t>(secondsOfDay % 3600 / 60);
  result.second = static_cast<std::uint32_t>(secondsOfDay % 60);
  result.microseconds = microseconds;
  result.utc = utcOffsetMinutes;
  return result;
}

std::int32_t LocalOffsetMinutes(std::int64_t unixSeconds)
{
  const auto time = static_cast<std::time_t>(unixSeconds);
  std::tm local{};
  if (localtime_r(&time, &local) == nullptr)
    return 0;
  return static_cast<std::int32_t>(local.tm_gmtoff / 60);
}

DateTime ToLocalDateTime(std::int64_t unixSeconds, std::uint32_t microseconds)
{
  return ToDateTime(unixSeconds, microseconds, LocalOffsetMinutes(unixSeconds));
}
} // namespace cim::machine
