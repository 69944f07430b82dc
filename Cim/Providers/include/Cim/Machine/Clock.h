// Time for the machine's classes: the time bases of the raw counter classes and the conversion
// of system times to MI date-times.
//
// Windows publishes three time bases with every raw performance instance
// (https://learn.microsoft.com/en-us/windows/win32/cimwin32prov/win32-perf): Timestamp_PerfTime
// counts the performance counter at Frequency_PerfTime ticks per second (here: since boot,
// CLOCK_BOOTTIME; the frequency is the host's, 10,000,000 on this machine); Timestamp_Sys100NS
// is the system time as a FILETIME (100 ns units since 1601) at 10,000,000; Timestamp_Object is
// the object's own time, which for the System and Process objects is that FILETIME as well.
#pragma once

#include "Cim/Model.h"

#include <cstdint>

namespace cim::machine
{
// 100 ns units in a second: Frequency_Sys100NS and Frequency_Object.
constexpr std::uint64_t Units100nsPerSecond = 10'000'000;
// The performance counter frequency this machine publishes.
constexpr std::uint64_t MachinePerfFrequency = 10'000'000;

struct PerfStamp
{
  std::uint64_t perfTime = 0;  // ticks of `frequency` since boot
  std::uint64_t sys100ns = 0;  // 100 ns units since 1601-01-01 UTC (FILETIME)
  std::uint64_t boot100ns = 0; // 100 ns units since boot, read with perfTime
  std::uint64_t frequency = MachinePerfFrequency;

  // The boot moment as a FILETIME.
  constexpr std::uint64_t BootFileTime() const { return sys100ns > boot100ns ? sys100ns - boot100ns : 0; }
};
// Reads the clocks once; perfTime counts at the given frequency (0 counts as the machine's).
PerfStamp SamplePerfStamp(std::uint64_t frequency);

// Kernel ticks (USER_HZ) to 100 ns units.
constexpr std::uint64_t TicksTo100ns(std::uint64_t ticks, std::uint64_t ticksPerSecond)
{
  return ticksPerSecond == 0 ? 0 : ticks * (Units100nsPerSecond / ticksPerSecond);
}
std::uint64_t TicksPerSecond();

// The wall-clock moment given in seconds since 1970 UTC, shown in a zone offset (minutes east).
DateTime ToDateTime(std::int64_t unixSeconds, std::uint32_t microseconds, std::int32_t utcOffsetMinutes);
// The same in this machine's local zone at that moment.
DateTime ToLocalDateTime(std::int64_t unixSeconds, std::uint32_t microseconds = 0);
std::int32_t LocalOffsetMinutes(std::int64_t unixSeconds);
} // namespace cim::machine
