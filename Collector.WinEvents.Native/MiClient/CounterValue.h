// Cooking of raw performance counter readings: ComputeCounterValue turns the new sample of a
// counter, the sample of its previous reading (nullptr when there is none) and its counter type
// (the "CounterType" qualifier) into the reported value, or into no value when the type is not
// known or the samples do not allow one. Pure: no state, no allocation, never throws.
// Each type is measured on the time base Microsoft documents for it: PerfTime ticks for the
// counters and system timers, Timestamp_Sys100NS for the 100 ns timers and queue lengths, the
// object time for PERF_ELAPSED_TIME and the object timers, and the `_Base` property for the
// fractions, averages and precision timers (the README lists each type with its page).
//   auto value = ComputeCounterValue(sample, hasPrevious ? &previous : nullptr, counterType);
#pragma once

#include "CounterSample.h"

#include <cstdint>
#include <optional>

// The published Windows performance counter types (winperf.h). Windows builds get them from the
// system header, which <windows.h> pulls in, as macros with these same names and values.
#ifndef PERF_DELTA_COUNTER
inline constexpr std::uint32_t PERF_DELTA_COUNTER = 0x00400000;

inline constexpr std::uint32_t PERF_COUNTER_RAWCOUNT_HEX = 0x00000000;
inline constexpr std::uint32_t PERF_COUNTER_LARGE_RAWCOUNT_HEX = 0x00000100;
inline constexpr std::uint32_t PERF_COUNTER_RAWCOUNT = 0x00010000;
inline constexpr std::uint32_t PERF_COUNTER_LARGE_RAWCOUNT = 0x00010100;

inline constexpr std::uint32_t PERF_COUNTER_DELTA = 0x00400400;
inline constexpr std::uint32_t PERF_COUNTER_LARGE_DELTA = 0x00400500;

inline constexpr std::uint32_t PERF_SAMPLE_COUNTER = 0x00410400;
inline constexpr std::uint32_t PERF_COUNTER_COUNTER = 0x10410400;
inline constexpr std::uint32_t PERF_COUNTER_BULK_COUNT = 0x10410500;

inline constexpr std::uint32_t PERF_COUNTER_QUEUELEN_TYPE = 0x00450400;
inline constexpr std::uint32_t PERF_COUNTER_LARGE_QUEUELEN_TYPE = 0x00450500;
inline constexpr std::uint32_t PERF_COUNTER_100NS_QUEUELEN_TYPE = 0x00550500;
inline constexpr std::uint32_t PERF_COUNTER_OBJ_TIME_QUEUELEN_TYPE = 0x00650500;
inline constexpr std::uint32_t PERF_AVERAGE_BULK = 0x40020500;

inline constexpr std::uint32_t PERF_COUNTER_TIMER = 0x20410500;
inline constexpr std::uint32_t PERF_PRECISION_SYSTEM_TIMER = 0x20470500;
inline constexpr std::uint32_t PERF_100NSEC_TIMER = 0x20510500;
inline constexpr std::uint32_t PERF_PRECISION_100NS_TIMER = 0x20570500;
inline constexpr std::uint32_t PERF_OBJ_TIME_TIMER = 0x20610500;
inline constexpr std::uint32_t PERF_PRECISION_OBJECT_TIMER = 0x20670500;
inline constexpr std::uint32_t PERF_SAMPLE_FRACTION = 0x20C20400;

inline constexpr std::uint32_t PERF_COUNTER_TIMER_INV = 0x21410500;
inline constexpr std::uint32_t PERF_100NSEC_TIMER_INV = 0x21510500;
inline constexpr std::uint32_t PERF_COUNTER_MULTI_TIMER = 0x22410500;
inline constexpr std::uint32_t PERF_100NSEC_MULTI_TIMER = 0x22510500;
inline constexpr std::uint32_t PERF_COUNTER_MULTI_TIMER_INV = 0x23410500;
inline constexpr std::uint32_t PERF_100NSEC_MULTI_TIMER_INV = 0x23510500;

inline constexpr std::uint32_t PERF_RAW_FRACTION = 0x20020400;
inline constexpr std::uint32_t PERF_LARGE_RAW_FRACTION = 0x20020500;
inline constexpr std::uint32_t PERF_AVERAGE_TIMER = 0x30020400;
inline constexpr std::uint32_t PERF_ELAPSED_TIME = 0x30240500;

// Types that are never cooked into a value.
inline constexpr std::uint32_t PERF_COUNTER_TEXT = 0x00000B00;
inline constexpr std::uint32_t PERF_COUNTER_NODATA = 0x40000200;
inline constexpr std::uint32_t PERF_SAMPLE_BASE = 0x40030401;
inline constexpr std::uint32_t PERF_AVERAGE_BASE = 0x40030402;
inline constexpr std::uint32_t PERF_RAW_BASE = 0x40030403;
inline constexpr std::uint32_t PERF_LARGE_RAW_BASE = 0x40030500;
inline constexpr std::uint32_t PERF_COUNTER_MULTI_BASE = 0x42030500;
inline constexpr std::uint32_t PERF_COUNTER_HISTOGRAM_TYPE = 0x80000000;
#endif

// The cooked value, or none. `previous` may be null (first reading of the counter).
std::optional<double> ComputeCounterValue(
  const CounterSample& current, const CounterSample* previous, std::uint32_t counterType) noexcept;

// The last step of ComputeCounterValue, on its own: the value truncated toward zero to a signed
// 64-bit integer (NaN, infinities and values outside that range count as the most negative
// integer); a negative integer gives no value, anything else the magnitude of `value`.
std::optional<double> ClipCounterValue(double value) noexcept;
