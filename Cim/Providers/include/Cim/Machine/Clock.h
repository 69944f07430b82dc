// Time for the machine's classes: the performance time base of the raw counter classes and
// the conversion of system times to MI date-times.
//
// Timestamp_PerfTime counts 100 ns units since boot (CLOCK_BOOTTIME) at a frequency of
// 10,000,000, so times kept in 100 ns units and moments measured since boot (process start)
// share its base; Timestamp_Sys100NS is the wall clock as a Windows FILETIME.
#pragma once

#include "Cim/Model.h"

#include <cstdint>

namespace cim::machine
{
constexpr std::uint64_t PerfFrequency = 10'000'000;

struct PerfStamp
{
  std::uint64_t perfTime = 0; // 100 ns units since boot
  std::uint64_t sys100ns = 0; // 100 ns units since 1601-01-01 UTC
};
PerfStamp SamplePerfStamp();

// Kernel ticks (USER_HZ) to 100 ns units.
constexpr std::uint64_t TicksTo100ns(std::uint64_t ticks, std::uint64_t ticksPerSecond)
{
  return ticksPerSecond == 0 ? 0 : ticks * (PerfFrequency / ticksPerSecond);
}
std::uint64_t TicksPerSecond();

// The wall-clock moment given in seconds since 1970 UTC, shown in a zone offset (minutes east).
DateTime ToDateTime(std::int64_t unixSeconds, std::uint32_t microseconds, std::int32_t utcOffsetMinutes);
// The same in this machine's local zone at that moment.
DateTime ToLocalDateTime(std::int64_t unixSeconds, std::uint32_t microseconds = 0);
std::int32_t LocalOffsetMinutes(std::int64_t unixSeconds);
} // namespace cim::machine
