// One raw reading of one performance counter of one instance, as the performance loader takes
// it from a raw counter class and as the counter calculation (CounterValue.h) consumes it. The
// loader fills the time bases that the class declares; the others stay 0.
#pragma once

#include <cstdint>

struct CounterSample
{
  // The counter property itself.
  std::int64_t value = 0;
  // "Timestamp_PerfTime" of the instance.
  std::int64_t timestamp = 0;
  // "Frequency_PerfTime" of the instance.
  std::int64_t frequency = 0;
  // "<counter>_Base" when the class declares it, else 0.
  std::int64_t base = 0;
  // Millisecond tick count taken when the class's query started.
  std::int64_t tick = 0;
  // "Timestamp_Sys100NS": the system time in 100 ns units.
  std::int64_t time100ns = 0;
  // "Timestamp_Object" and "Frequency_Object": the object's own time base.
  std::int64_t objectTimestamp = 0;
  std::int64_t objectFrequency = 0;
};
