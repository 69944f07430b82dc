// One raw reading of one performance counter of one instance, as the performance loader takes
// it from a raw counter class and as the counter calculation (CounterValue.h) consumes it.
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
  // Never filled from the instance: the multi-timer types depend on it staying 0.
  std::int64_t base = 0;
  // Millisecond tick count taken when the class's query started.
  std::int64_t tick = 0;
};
