// Table test of the counter calculation: every known counter type with and without a previous
// sample, its guards, the order of the differences, the integer divisions and the clipping. The
// types measured on another time base than PerfTime, or with a base property, carry Microsoft's
// formula above their rows.
#include "CounterValue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace
{
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kTwo63 = 9223372036854775808.0;

// Positional on purpose, so that table rows stay short: the fields in their declaration order.
// NOLINTNEXTLINE(bugprone-easily-swappable-parameters)
CounterSample S(std::int64_t value, std::int64_t timestamp, std::int64_t frequency = 0, std::int64_t base = 0)
{
  CounterSample sample;
  sample.value = value;
  sample.timestamp = timestamp;
  sample.frequency = frequency;
  sample.base = base;
  sample.tick = 12345;
  return sample;
}

// A sample with its Timestamp_Sys100NS.
CounterSample H(std::int64_t value, std::int64_t time100ns)
{
  CounterSample sample = S(value, 0);
  sample.time100ns = time100ns;
  return sample;
}

// A sample with its object time base.
CounterSample O(std::int64_t value, std::int64_t objectTimestamp, std::int64_t objectFrequency = 0)
{
  CounterSample sample = S(value, 0);
  sample.objectTimestamp = objectTimestamp;
  sample.objectFrequency = objectFrequency;
  return sample;
}

// A sample with its base property (and the PerfTime frequency).
CounterSample B(std::int64_t value, std::int64_t base, std::int64_t frequency = 0)
{
  return S(value, 0, frequency, base);
}

struct Row
{
  std::string name;
  std::uint32_t type;
  CounterSample current;
  std::optional<CounterSample> previous;
  std::optional<double> expected;
};

void PrintTo(const Row& row, std::ostream* out)
{
  *out << row.name;
}

std::optional<double> Compute(const Row& row)
{
  return ComputeCounterValue(row.current, row.previous ? &*row.previous : nullptr, row.type);
}


std::vector<Row> Rows()
{
  std::vector<Row> rows;
  auto add = [&rows](std::string name, std::uint32_t type, CounterSample current,
                     std::optional<CounterSample> previous, std::optional<double> expected) {
    rows.push_back(Row{std::move(name), type, current, previous, expected});
  };

  // Raw counts: the current value, previous sample or not.
  const std::pair<const char*, std::uint32_t> raw[] = {
    {"RawcountHex", PERF_COUNTER_RAWCOUNT_HEX},
    {"LargeRawcountHex", PERF_COUNTER_LARGE_RAWCOUNT_HEX},
    {"Rawcount", PERF_COUNTER_RAWCOUNT},
    {"LargeRawcount", PERF_COUNTER_LARGE_RAWCOUNT},
  };
  for (const auto& [name, type] : raw)
  {
    const std::string n = name;
    add(n + "_NoPrevious", type, S(42, 1000, 10), std::nullopt, 42.0);
    add(n + "_WithPrevious", type, S(42, 1000, 10), S(7, 500, 10), 42.0);
    add(n + "_Zero", type, S(0, 0, 0), std::nullopt, 0.0);
    add(n + "_Negative", type, S(-5, 1000, 10), std::nullopt, std::nullopt);
    // 2^63 - 1 becomes 2^63 as a double, which lies beyond the 64-bit range.
    add(n + "_Int64MaxBeyondRange", type, S(kMax, 0), std::nullopt, std::nullopt);
    add(n + "_LargestInRange", type, S(kMax - 1023, 0), std::nullopt, 9223372036854774784.0);
  }

  // Deltas: previous minus current.
  for (const auto& [name, type] : {std::pair<const char*, std::uint32_t>{"Delta", PERF_COUNTER_DELTA},
                                   {"LargeDelta", PERF_COUNTER_LARGE_DELTA}})
  {
    const std::string n = name;
    add(n + "_NoPrevious", type, S(5, 0), std::nullopt, std::nullopt);
    add(n + "_Rising_5_to_7", type, S(7, 0), S(5, 0), std::nullopt);
    add(n + "_Falling_7_to_5", type, S(5, 0), S(7, 0), 2.0);
    add(n + "_Unchanged", type, S(9, 100), S(9, 100), 0.0);
    // Wrapped difference: most negative minus most positive is 1 modulo 2^64.
    add(n + "_DifferenceWraps", type, S(kMax, 0), S(kMin, 0), 1.0);
    // Most positive minus -1 wraps to the most negative: far below zero.
    add(n + "_DifferenceWrapsNegative", type, S(-1, 0), S(kMax, 0), std::nullopt);
  }

  // dN / (dT / F).
  const std::pair<const char*, std::uint32_t> counters[] = {
    {"SampleCounter", PERF_SAMPLE_COUNTER},
    {"CounterCounter", PERF_COUNTER_COUNTER},
    {"BulkCount", PERF_COUNTER_BULK_COUNT},
  };
  for (const auto& [name, type] : counters)
  {
    const std::string n = name;
    add(n + "_NoPrevious", type, S(200, 2000, 10), std::nullopt, std::nullopt);
    add(n + "_Worked", type, S(200, 2000), S(100, 1000, 10), 1.0);
    add(n + "_Rate", type, S(1100, 3000), S(100, 1000, 100), 50.0);
    // The frequency comes from the previous sample, not the current one.
    add(n + "_PreviousFrequencyZero", type, S(200, 2000, 10), S(100, 1000, 0), std::nullopt);
    add(n + "_CurrentFrequencyIgnored", type, S(200, 2000, 0), S(100, 1000, 10), 1.0);
    add(n + "_EqualTimestamps", type, S(200, 1000), S(100, 1000, 10), std::nullopt);
    add(n + "_Falling", type, S(100, 2000), S(200, 1000, 10), std::nullopt);
    add(n + "_BeyondRange", type, S(4'000'000'000'000'000'000, 1), S(0, 0, 1000), std::nullopt);
    add(n + "_NearRangeEnd", type, S(4'000'000'000'000'000'000, 1), S(0, 0, 1), 4e18);
  }

  // dN / dT.
  const std::pair<const char*, std::uint32_t> queues[] = {
    {"Queuelen", PERF_COUNTER_QUEUELEN_TYPE},
    {"LargeQueuelen", PERF_COUNTER_LARGE_QUEUELEN_TYPE},
  };
  for (const auto& [name, type] : queues)
  {
    const std::string n = name;
    add(n + "_NoPrevious", type, S(30, 140), std::nullopt, std::nullopt);
    add(n + "_Worked", type, S(30, 140), S(10, 100), 0.5);
    add(n + "_EqualTimestamps", type, S(30, 100), S(10, 100), std::nullopt);
    add(n + "_Falling", type, S(10, 140), S(100, 100), std::nullopt);
    add(n + "_SmallNegativeKeptAsMagnitude", type, S(0, 1000), S(1, 0), 0.001);
  }

  // PERF_COUNTER_100NS_QUEUELEN_TYPE: (N1 - N0) / (D1 - D0), D the system time in 100 ns
  // (Timestamp_Sys100NS; https://learn.microsoft.com/en-us/windows/win32/wmisdk/queue-length-algorithm-counter-types).
  add("Queuelen100ns_NoPrevious", PERF_COUNTER_100NS_QUEUELEN_TYPE, H(30, 140), std::nullopt, std::nullopt);
  add("Queuelen100ns_Worked", PERF_COUNTER_100NS_QUEUELEN_TYPE, H(30, 140), H(10, 100), 0.5);
  {
    CounterSample current = H(30, 140);
    current.timestamp = 999;
    current.frequency = 3;
    add("Queuelen100ns_PerfTimeIgnored", PERF_COUNTER_100NS_QUEUELEN_TYPE, current, H(10, 100), 0.5);
  }
  add("Queuelen100ns_EqualSys100ns", PERF_COUNTER_100NS_QUEUELEN_TYPE, H(30, 100), H(10, 100), std::nullopt);
  add("Queuelen100ns_Falling", PERF_COUNTER_100NS_QUEUELEN_TYPE, H(10, 140), H(100, 100), std::nullopt);

  // PERF_COUNTER_OBJ_TIME_QUEUELEN_TYPE: (N1 - N0) / (D1 - D0), D the object's time
  // (Timestamp_Object).
  add("QueuelenObjTime_NoPrevious", PERF_COUNTER_OBJ_TIME_QUEUELEN_TYPE, O(30, 140), std::nullopt, std::nullopt);
  add("QueuelenObjTime_Worked", PERF_COUNTER_OBJ_TIME_QUEUELEN_TYPE, O(30, 140), O(10, 100), 0.5);
  add("QueuelenObjTime_EqualObjectTime", PERF_COUNTER_OBJ_TIME_QUEUELEN_TYPE, O(30, 100), O(10, 100), std::nullopt);

  // PERF_AVERAGE_BULK: (N1 - N0) / (B1 - B0), B the base property; no delta flag, yet the first
  // reading has no value (https://learn.microsoft.com/en-us/windows/win32/wmisdk/base-counter-types).
  add("AverageBulk_NoPrevious", PERF_AVERAGE_BULK, B(30, 4), std::nullopt, std::nullopt);
  add("AverageBulk_Worked", PERF_AVERAGE_BULK, B(4096, 4), B(0, 0), 1024.0);
  add("AverageBulk_TimestampIgnored", PERF_AVERAGE_BULK, S(4096, 7, 1, 4), B(0, 0), 1024.0);
  add("AverageBulk_EqualBases", PERF_AVERAGE_BULK, B(30, 4), B(10, 4), std::nullopt);
  add("AverageBulk_Falling", PERF_AVERAGE_BULK, B(10, 4), B(100, 0), std::nullopt);

  // PERF_COUNTER_TIMER: 100 * (N1 - N0) / (D1 - D0), D in PerfTime ticks.
  add("CounterTimer_NoPrevious", PERF_COUNTER_TIMER, S(50, 100), std::nullopt, std::nullopt);
  add("CounterTimer_Worked", PERF_COUNTER_TIMER, S(50, 100), S(0, 0), 50.0);
  add("CounterTimer_EqualTimestamps", PERF_COUNTER_TIMER, S(50, 100), S(0, 100), std::nullopt);
  add("CounterTimer_MinusHalfIsHalf", PERF_COUNTER_TIMER, S(0, 200), S(1, 0), 0.5);
  add("CounterTimer_MinusOne", PERF_COUNTER_TIMER, S(0, 100), S(1, 0), std::nullopt);

  // PERF_100NSEC_TIMER: 100 * (N1 - N0) / (D1 - D0), D the system time in 100 ns units
  // (Timestamp_Sys100NS), whatever the performance frequency
  // (https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc728274(v=ws.10)).
  {
    // 1 s of busy time in 2 s of system time, on a host whose PerfTime runs at 3,579,545 Hz.
    CounterSample previous = H(0, 0);
    previous.frequency = 3'579'545;
    CounterSample current = H(10'000'000, 20'000'000);
    current.timestamp = 2 * 3'579'545;
    current.frequency = 3'579'545;
    add("Timer100ns_SlowPerfTimeIgnored", PERF_100NSEC_TIMER, current, previous, 50.0);
  }
  add("Timer100ns_NoPrevious", PERF_100NSEC_TIMER, H(50, 100), std::nullopt, std::nullopt);
  add("Timer100ns_Worked", PERF_100NSEC_TIMER, H(50, 100), H(0, 0), 50.0);
  add("Timer100ns_EqualSys100ns", PERF_100NSEC_TIMER, H(50, 100), H(0, 100), std::nullopt);
  add("Timer100ns_MinusHalfIsHalf", PERF_100NSEC_TIMER, H(0, 200), H(1, 0), 0.5);
  add("Timer100ns_MinusOne", PERF_100NSEC_TIMER, H(0, 100), H(1, 0), std::nullopt);

  // PERF_OBJ_TIME_TIMER: 100 * (N1 - N0) / (D1 - D0), D the object's time (Timestamp_Object).
  add("ObjTimeTimer_NoPrevious", PERF_OBJ_TIME_TIMER, O(50, 100), std::nullopt, std::nullopt);
  add("ObjTimeTimer_Worked", PERF_OBJ_TIME_TIMER, O(50, 100), O(0, 0), 50.0);
  add("ObjTimeTimer_EqualObjectTime", PERF_OBJ_TIME_TIMER, O(50, 100), O(0, 100), std::nullopt);

  // The precision timers: 100 * (N1 - N0) / (B1 - B0), B the timestamp that follows the counter
  // as its base property (PERF_PRECISION_TIMESTAMP;
  // https://learn.microsoft.com/en-us/windows/win32/wmisdk/precision-timer-algorithm-counter-types).
  // PERF_SAMPLE_FRACTION: 100 * (N1 - N0) / (B1 - B0), B counting all operations
  // (https://learn.microsoft.com/en-us/windows/win32/wmisdk/basic-algorithm-counter-types).
  const std::pair<const char*, std::uint32_t> baseTimers[] = {
    {"PrecisionSystemTimer", PERF_PRECISION_SYSTEM_TIMER},
    {"Precision100nsTimer", PERF_PRECISION_100NS_TIMER},
    {"PrecisionObjectTimer", PERF_PRECISION_OBJECT_TIMER},
    {"SampleFraction", PERF_SAMPLE_FRACTION},
  };
  for (const auto& [name, type] : baseTimers)
  {
    const std::string n = name;
    add(n + "_NoPrevious", type, B(50, 100), std::nullopt, std::nullopt);
    add(n + "_Worked", type, B(50, 100), B(0, 0), 50.0);
    add(n + "_TimestampIgnored", type, S(50, 7, 1, 100), B(0, 0), 50.0);
    add(n + "_EqualBases", type, B(50, 100), B(0, 100), std::nullopt);
    add(n + "_MinusHalfIsHalf", type, B(0, 200), B(1, 0), 0.5);
    add(n + "_MinusOne", type, B(0, 100), B(1, 0), std::nullopt);
  }

  // (1 - dN / dT) * 100.
  add("CounterTimerInv_NoPrevious", PERF_COUNTER_TIMER_INV, S(25, 100), std::nullopt, std::nullopt);
  add("CounterTimerInv_Worked", PERF_COUNTER_TIMER_INV, S(25, 100), S(0, 0), 75.0);
  add("CounterTimerInv_EqualTimestamps", PERF_COUNTER_TIMER_INV, S(25, 100), S(0, 100), std::nullopt);
  add("CounterTimerInv_Negative", PERF_COUNTER_TIMER_INV, S(200, 100), S(0, 0), std::nullopt);

  // D = dT * 10^7 integer-divided by the current frequency; (1 - dN / D) * 100.
  add("Timer100nsInv_NoPrevious", PERF_100NSEC_TIMER_INV, S(2'500'000, 1000, 1000), std::nullopt, std::nullopt);
  add("Timer100nsInv_Worked", PERF_100NSEC_TIMER_INV, S(2'500'000, 1000, 1000), S(0, 0, 7), 75.0);
  // -10^7 / 3 truncates to -3333333, equal to dN: exactly 0 (a floating division gives 1e-5).
  add("Timer100nsInv_IntegerDivision", PERF_100NSEC_TIMER_INV, S(3'333'333, 1, 3), S(0, 0, 99), 0.0);
  add("Timer100nsInv_CurrentFrequencyZero", PERF_100NSEC_TIMER_INV, S(1, 1000, 0), S(0, 0, 1000), std::nullopt);
  add("Timer100nsInv_QuotientZero", PERF_100NSEC_TIMER_INV, S(0, 1, 20'000'000), S(0, 0, 1), std::nullopt);
  add("Timer100nsInv_EqualTimestamps", PERF_100NSEC_TIMER_INV, S(5, 1000, 1000), S(0, 1000, 1000), std::nullopt);
  add("Timer100nsInv_Negative", PERF_100NSEC_TIMER_INV, S(20'000'000, 1000, 1000), S(0, 0, 1000), std::nullopt);

  // dN / (dT integer-divided by F) * 100 / B; the base is 0 in practice, so no value.
  add("MultiTimer_NoPrevious", PERF_COUNTER_MULTI_TIMER, S(20, 100), std::nullopt, std::nullopt);
  add("MultiTimer_BaseZero", PERF_COUNTER_MULTI_TIMER, S(20, 100), S(0, 0, 10, 0), std::nullopt);
  add("MultiTimer_WithBase", PERF_COUNTER_MULTI_TIMER, S(20, 100), S(0, 0, 10, 2), 100.0);
  // -105 / 10 truncates to -10: 2.1 * 100 / 2 (a floating division gives 100).
  add("MultiTimer_IntegerDivision", PERF_COUNTER_MULTI_TIMER, S(21, 105), S(0, 0, 10, 2), 105.0);
  add("MultiTimer_FrequencyZero", PERF_COUNTER_MULTI_TIMER, S(20, 100), S(0, 0, 0, 2), std::nullopt);
  add("MultiTimer_EqualTimestamps", PERF_COUNTER_MULTI_TIMER, S(20, 0), S(0, 0, 10, 2), std::nullopt);
  // dT / F truncates to 0: 0 / 0 is NaN, 1 / 0 and -1 / 0 are infinities.
  add("MultiTimer_NaN", PERF_COUNTER_MULTI_TIMER, S(0, 5), S(0, 0, 10, 2), std::nullopt);
  add("MultiTimer_PlusInfinity", PERF_COUNTER_MULTI_TIMER, S(0, 5), S(1, 0, 10, 2), std::nullopt);
  add("MultiTimer_MinusInfinity", PERF_COUNTER_MULTI_TIMER, S(1, 5), S(0, 0, 10, 2), std::nullopt);

  // dN / dT * 100 / B.
  add("MultiTimer100ns_NoPrevious", PERF_100NSEC_MULTI_TIMER, S(10, 50), std::nullopt, std::nullopt);
  add("MultiTimer100ns_BaseZero", PERF_100NSEC_MULTI_TIMER, S(10, 50), S(0, 0, 1, 0), std::nullopt);
  add("MultiTimer100ns_WithBase", PERF_100NSEC_MULTI_TIMER, S(10, 50), S(0, 0, 1, 4), 5.0);
  add("MultiTimer100ns_EqualTimestamps", PERF_100NSEC_MULTI_TIMER, S(10, 0), S(0, 0, 1, 4), std::nullopt);

  // (B - dN / dT) * 100: with B = 0 that is -100 * dN / dT.
  for (const auto& [name, type] : {std::pair<const char*, std::uint32_t>{"MultiTimerInv", PERF_COUNTER_MULTI_TIMER_INV},
                                   {"MultiTimer100nsInv", PERF_100NSEC_MULTI_TIMER_INV}})
  {
    const std::string n = name;
    add(n + "_NoPrevious", type, S(0, 100), std::nullopt, std::nullopt);
    add(n + "_BaseZeroRising", type, S(5, 100), S(0, 0), std::nullopt);
    add(n + "_BaseZeroUnchanged", type, S(5, 100), S(5, 0), 0.0);
    add(n + "_BaseZeroFalling", type, S(0, 100), S(5, 0), 5.0);
    add(n + "_BaseZeroSmallRiseIsMagnitude", type, S(1, 1000), S(0, 0), 0.1);
    add(n + "_WithBase", type, S(50, 100), S(0, 0, 0, 1), 50.0);
    add(n + "_EqualTimestamps", type, S(5, 100), S(0, 100), std::nullopt);
  }

  // PERF_RAW_FRACTION: 100 * N / B, B the base property; the previous sample plays no part
  // (https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc779364(v=ws.10)).
  for (const auto& [name, type] : {std::pair<const char*, std::uint32_t>{"RawFraction", PERF_RAW_FRACTION},
                                   {"LargeRawFraction", PERF_LARGE_RAW_FRACTION}})
  {
    const std::string n = name;
    add(n + "_NoPrevious", type, B(1, 4), std::nullopt, 25.0);
    add(n + "_WithPrevious", type, B(1, 4), S(99, 1, 1, 7), 25.0);
    add(n + "_TimestampIgnored", type, S(1, 1000, 1, 4), std::nullopt, 25.0);
    add(n + "_BaseZero", type, S(1, 4), std::nullopt, std::nullopt);
    add(n + "_Negative", type, B(-1, 4), std::nullopt, std::nullopt);
  }

  // PERF_AVERAGE_TIMER: ((N1 - N0) / F) / (B1 - B0), N in PerfTime ticks, F the frequency of the
  // previous sample, B the count of operations; no delta flag, yet it needs a previous sample
  // (https://learn.microsoft.com/en-us/previous-versions/ms938538(v=msdn.10)).
  add("AverageTimer_NoPrevious", PERF_AVERAGE_TIMER, B(100, 5), std::nullopt, std::nullopt);
  // 2 s of read time (at 3,579,545 ticks per second) over 4 reads: 0.5 s per read.
  add("AverageTimer_Worked", PERF_AVERAGE_TIMER, B(7'159'090, 4), B(0, 0, 3'579'545), 0.5);
  add("AverageTimer_TimestampIgnored", PERF_AVERAGE_TIMER, S(100, 999, 0, 5), B(0, 0, 10), 2.0);
  add("AverageTimer_Falling", PERF_AVERAGE_TIMER, B(0, 5), B(100, 0, 10), std::nullopt);
  add("AverageTimer_FrequencyZero", PERF_AVERAGE_TIMER, B(100, 5, 10), B(0, 0, 0), std::nullopt);
  add("AverageTimer_EqualBases", PERF_AVERAGE_TIMER, B(100, 5), B(0, 5, 10), std::nullopt);

  // PERF_ELAPSED_TIME: (D0 - N0) / F, D0 the object's time now (Timestamp_Object), N0 its start
  // and F the object's frequency (Frequency_Object), from the current sample only
  // (https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc756820(v=ws.10)).
  {
    // Started at a FILETIME and sampled 12.5 s later; the PerfTime base plays no part.
    CounterSample current = O(133'000'000'000'000'000, 133'000'000'125'000'000, 10'000'000);
    current.timestamp = 5000;
    current.frequency = 100;
    add("ElapsedTime_FileTimes", PERF_ELAPSED_TIME, current, std::nullopt, 12.5);
    add("ElapsedTime_WithPrevious", PERF_ELAPSED_TIME, current, O(0, 0, 0), 12.5);
  }
  add("ElapsedTime_ObjectFrequencyZero", PERF_ELAPSED_TIME, O(1000, 5000, 0), O(0, 0, 100), std::nullopt);
  add("ElapsedTime_PerfTimeAloneGivesNothing", PERF_ELAPSED_TIME, S(1000, 5000, 100), std::nullopt, std::nullopt);
  add("ElapsedTime_StartAfterNow", PERF_ELAPSED_TIME, O(6000, 5000, 100), std::nullopt, std::nullopt);

  // Types outside the table.
  const std::pair<const char*, std::uint32_t> others[] = {
    {"Nodata", PERF_COUNTER_NODATA},
    {"Text", PERF_COUNTER_TEXT},
    {"SampleBase", PERF_SAMPLE_BASE},
    {"AverageBase", PERF_AVERAGE_BASE},
    {"RawBase", PERF_RAW_BASE},
    {"LargeRawBase", PERF_LARGE_RAW_BASE},
    {"MultiBase", PERF_COUNTER_MULTI_BASE},
    {"Histogram", PERF_COUNTER_HISTOGRAM_TYPE},
    {"Arbitrary", 0x12345678},
    {"DeltaFlagAlone", PERF_DELTA_COUNTER},
    {"AllBits", 0xFFFFFFFF},
  };
  for (const auto& [name, type] : others)
  {
    const std::string n = std::string("Unknown") + name;
    add(n + "_NoPrevious", type, S(50, 100, 10), std::nullopt, std::nullopt);
    add(n + "_WithPrevious", type, S(50, 100, 10), S(0, 0, 10, 1), std::nullopt);
  }
  return rows;
}

class CounterValueTable : public testing::TestWithParam<Row>
{
};

TEST_P(CounterValueTable, ComputesExpectedValue)
{
  const Row& row = GetParam();
  const std::optional<double> actual = Compute(row);
  if (!row.expected)
  {
    EXPECT_FALSE(actual.has_value()) << "got " << *actual;
    return;
  }
  ASSERT_TRUE(actual.has_value());
  EXPECT_DOUBLE_EQ(*row.expected, *actual);
  EXPECT_FALSE(std::signbit(*actual));
}

INSTANTIATE_TEST_SUITE_P(AllTypes, CounterValueTable, testing::ValuesIn(Rows()),
                         [](const testing::TestParamInfo<Row>& info) { return info.param.name; });

// Every type that reads two samples, with equal timestamps and frequencies that pass the other
// guards, yields nothing.
TEST(CounterValue, EqualTimestampsYieldNothingForEveryRateTimerAndQueueType)
{
  const std::uint32_t types[] = {
    PERF_SAMPLE_COUNTER, PERF_COUNTER_COUNTER, PERF_COUNTER_BULK_COUNT, PERF_COUNTER_QUEUELEN_TYPE,
    PERF_COUNTER_LARGE_QUEUELEN_TYPE, PERF_COUNTER_100NS_QUEUELEN_TYPE, PERF_COUNTER_OBJ_TIME_QUEUELEN_TYPE,
    PERF_AVERAGE_BULK, PERF_COUNTER_TIMER, PERF_PRECISION_SYSTEM_TIMER, PERF_100NSEC_TIMER,
    PERF_PRECISION_100NS_TIMER, PERF_OBJ_TIME_TIMER, PERF_PRECISION_OBJECT_TIMER, PERF_SAMPLE_FRACTION,
    PERF_COUNTER_TIMER_INV, PERF_100NSEC_TIMER_INV, PERF_COUNTER_MULTI_TIMER, PERF_100NSEC_MULTI_TIMER,
    PERF_COUNTER_MULTI_TIMER_INV, PERF_100NSEC_MULTI_TIMER_INV, PERF_AVERAGE_TIMER,
  };
  const CounterSample previous = S(0, 777, 10, 3);
  const CounterSample current = S(0, 777, 10, 3);
  for (std::uint32_t type : types)
  {
    EXPECT_FALSE(ComputeCounterValue(current, &previous, type).has_value()) << std::hex << type;
  }
}

// Every type with the delta flag yields nothing on its first reading.
TEST(CounterValue, DeltaFlagWithoutPreviousYieldsNothing)
{
  const std::uint32_t types[] = {
    PERF_COUNTER_DELTA, PERF_COUNTER_LARGE_DELTA, PERF_SAMPLE_COUNTER, PERF_COUNTER_COUNTER,
    PERF_COUNTER_BULK_COUNT, PERF_COUNTER_QUEUELEN_TYPE, PERF_COUNTER_LARGE_QUEUELEN_TYPE,
    PERF_COUNTER_100NS_QUEUELEN_TYPE, PERF_COUNTER_OBJ_TIME_QUEUELEN_TYPE, PERF_COUNTER_TIMER,
    PERF_PRECISION_SYSTEM_TIMER, PERF_100NSEC_TIMER, PERF_PRECISION_100NS_TIMER, PERF_OBJ_TIME_TIMER,
    PERF_PRECISION_OBJECT_TIMER, PERF_SAMPLE_FRACTION, PERF_COUNTER_TIMER_INV, PERF_100NSEC_TIMER_INV,
    PERF_COUNTER_MULTI_TIMER, PERF_100NSEC_MULTI_TIMER, PERF_COUNTER_MULTI_TIMER_INV,
    PERF_100NSEC_MULTI_TIMER_INV,
  };
  for (std::uint32_t type : types)
  {
    ASSERT_NE(type & PERF_DELTA_COUNTER, 0u) << std::hex << type;
    EXPECT_FALSE(ComputeCounterValue(S(1, 100, 10, 1), nullptr, type).has_value()) << std::hex << type;
  }
}

// The final clipping rule on its own, including the values no formula above produces easily.
struct ClipRow
{
  const char* name;
  double input;
  std::optional<double> expected;
};

class ClipTable : public testing::TestWithParam<ClipRow>
{
};

TEST_P(ClipTable, Clips)
{
  const ClipRow& row = GetParam();
  const std::optional<double> actual = ClipCounterValue(row.input);
  if (!row.expected)
  {
    EXPECT_FALSE(actual.has_value()) << "got " << *actual;
    return;
  }
  ASSERT_TRUE(actual.has_value());
  EXPECT_EQ(*row.expected, *actual);
  EXPECT_FALSE(std::signbit(*actual));
}

INSTANTIATE_TEST_SUITE_P(
  Values, ClipTable,
  testing::Values(ClipRow{"Zero", 0.0, 0.0}, ClipRow{"MinusZero", -0.0, 0.0}, ClipRow{"Half", 0.5, 0.5},
                  ClipRow{"MinusHalf", -0.5, 0.5}, ClipRow{"AlmostMinusOne", -0.999, 0.999},
                  ClipRow{"MinusOne", -1.0, std::nullopt}, ClipRow{"MinusOnePointFive", -1.5, std::nullopt},
                  ClipRow{"Fraction", 12.75, 12.75}, ClipRow{"NaN", kNaN, std::nullopt}, ClipRow{"MinusNaN", -kNaN, std::nullopt},
                  ClipRow{"PlusInfinity", kInf, std::nullopt}, ClipRow{"MinusInfinity", -kInf, std::nullopt},
                  ClipRow{"Two63", kTwo63, std::nullopt}, ClipRow{"BelowTwo63", 9223372036854774784.0, 9223372036854774784.0},
                  ClipRow{"MinusTwo63", -kTwo63, std::nullopt}, ClipRow{"Huge", 1e300, std::nullopt}, ClipRow{"MinusHuge", -1e300, std::nullopt},
                  ClipRow{"Tiny", 5e-324, 5e-324}, ClipRow{"MinusTiny", -5e-324, 5e-324}),
  [](const testing::TestParamInfo<ClipRow>& info) { return std::string(info.param.name); });

TEST(CounterValue, IsNoexcept)
{
  static_assert(noexcept(ComputeCounterValue(CounterSample{}, nullptr, 0)));
  static_assert(noexcept(ClipCounterValue(0.0)));
  EXPECT_EQ(ComputeCounterValue(S(3, 0), nullptr, PERF_COUNTER_RAWCOUNT), 3.0);
}

TEST(CounterValue, TickPlaysNoPart)
{
  CounterSample previous = S(0, 0);
  CounterSample current = S(50, 100);
  previous.tick = 1;
  current.tick = 1'000'000;
  EXPECT_EQ(ComputeCounterValue(current, &previous, PERF_COUNTER_TIMER), 50.0);
}
} // namespace
