// The Windows performance counter types (the "CounterType" qualifier values) that the raw
// performance classes of this machine carry, with their published names.
#pragma once

#include <cstdint>

namespace cim::machine::counter
{
constexpr std::uint32_t RawCount = 0x00010000;         // PERF_COUNTER_RAWCOUNT
constexpr std::uint32_t LargeRawCount = 0x00010100;    // PERF_COUNTER_LARGE_RAWCOUNT
constexpr std::uint32_t Counter = 0x10410400;          // PERF_COUNTER_COUNTER
constexpr std::uint32_t BulkCount = 0x10410500;        // PERF_COUNTER_BULK_COUNT
constexpr std::uint32_t Timer100ns = 0x20510500;       // PERF_100NSEC_TIMER
constexpr std::uint32_t Timer100nsInv = 0x21510500;    // PERF_100NSEC_TIMER_INV
constexpr std::uint32_t Precision100ns = 0x20570500;   // PERF_PRECISION_100NS_TIMER
constexpr std::uint32_t QueueLen100ns = 0x00550500;    // PERF_COUNTER_100NS_QUEUELEN_TYPE
constexpr std::uint32_t ElapsedTime = 0x30240500;      // PERF_ELAPSED_TIME
constexpr std::uint32_t RawFraction = 0x20020400;      // PERF_RAW_FRACTION
constexpr std::uint32_t RawBase = 0x40030403;          // PERF_RAW_BASE
constexpr std::uint32_t AverageTimer = 0x30020400;     // PERF_AVERAGE_TIMER
constexpr std::uint32_t AverageBase = 0x40030402;      // PERF_AVERAGE_BASE
constexpr std::uint32_t PrecisionTimestamp = 0x40030500; // PERF_PRECISION_TIMESTAMP (PERF_LARGE_RAW_BASE)
} // namespace cim::machine::counter
