#include "CounterValue.h"

#include <cmath>
#include <limits>

namespace
{
constexpr std::int64_t kMinInt64 = std::numeric_limits<std::int64_t>::min();

// Raw counters wrap around, and a difference of two arbitrary readings may not fit: integer
// arithmetic here wraps modulo 2^64 instead of overflowing (which C++ leaves undefined).
std::int64_t Minus(std::int64_t a, std::int64_t b) noexcept
{
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

std::int64_t Times(std::int64_t a, std::int64_t b) noexcept
{
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

// Integer division truncating toward zero; the caller has ruled out b == 0. The one quotient
// that does not fit (most negative / -1) wraps to itself like the other operations.
std::int64_t Divide(std::int64_t a, std::int64_t b) noexcept
{
  if (a == kMinInt64 && b == -1)
  {
    return kMinInt64;
  }
  return a / b;
}

double ToDouble(std::int64_t value) noexcept
{
  return static_cast<double>(value);
}

// Truncation toward zero to a signed 64-bit integer, with what the processor's conversion gives
// for NaN, infinities and out-of-range values: the most negative integer. A plain cast would be
// undefined behaviour for those.
std::int64_t TruncateToInt64(double value) noexcept
{
  // 2^63: every double in [-2^63, 2^63) truncates to a representable integer.
  constexpr double kLimit = 9223372036854775808.0;
  if (!(value >= -kLimit && value < kLimit))
  {
    return kMinInt64;
  }
  return static_cast<std::int64_t>(value);
}

bool IsRawCount(std::uint32_t type) noexcept
{
  return type == PERF_COUNTER_RAWCOUNT_HEX || type == PERF_COUNTER_LARGE_RAWCOUNT_HEX ||
         type == PERF_COUNTER_RAWCOUNT || type == PERF_COUNTER_LARGE_RAWCOUNT;
}

// The formula of the type before clipping; no value when a guard fails or the type is unknown.
std::optional<double> Cook(const CounterSample& cur, const CounterSample* prev, std::uint32_t type) noexcept
{
  if (IsRawCount(type))
  {
    return ToDouble(cur.value);
  }
  // Types computed from the current sample alone.
  switch (type)
  {
  case PERF_RAW_FRACTION:
  case PERF_LARGE_RAW_FRACTION:
    // 100 * N / B with the base property (Windows' formula: "(N0 / D0)" as a percentage).
    if (cur.base == 0)
    {
      return std::nullopt;
    }
    return ToDouble(cur.value) * 100.0 / ToDouble(cur.base);
  case PERF_ELAPSED_TIME:
    // (D0 - N0) / F on the object time base: Timestamp_Object and Frequency_Object.
    if (cur.objectFrequency == 0)
    {
      return std::nullopt;
    }
    return ToDouble(Minus(cur.objectTimestamp, cur.value)) / ToDouble(cur.objectFrequency);
  default:
    break;
  }

  // Every other known type reads the previous sample. PERF_AVERAGE_TIMER and PERF_AVERAGE_BULK
  // lack the delta flag, so this is also where their first reading ends.
  if (prev == nullptr)
  {
    return std::nullopt;
  }
  // Differences run previous minus current; in every ratio the sign cancels.
  const std::int64_t dN = Minus(prev->value, cur.value);
  const std::int64_t dT = Minus(prev->timestamp, cur.timestamp);
  const std::int64_t f = prev->frequency;
  const std::int64_t b = prev->base;
  // The other time bases and the base property, in the same order.
  const std::int64_t dS = Minus(prev->time100ns, cur.time100ns);
  const std::int64_t dO = Minus(prev->objectTimestamp, cur.objectTimestamp);
  const std::int64_t dB = Minus(prev->base, cur.base);
  const double n = ToDouble(dN);
  const double t = ToDouble(dT);

  switch (type)
  {
  case PERF_COUNTER_DELTA:
  case PERF_COUNTER_LARGE_DELTA:
    // A rising counter gives a negative number here, which clipping drops; kept on purpose.
    return n;

  case PERF_SAMPLE_COUNTER:
  case PERF_COUNTER_COUNTER:
  case PERF_COUNTER_BULK_COUNT:
    if (f == 0 || dT == 0)
    {
      return std::nullopt;
    }
    return n / (t / ToDouble(f));

  case PERF_COUNTER_QUEUELEN_TYPE:
  case PERF_COUNTER_LARGE_QUEUELEN_TYPE:
    if (dT == 0)
    {
      return std::nullopt;
    }
    return n / t;

  case PERF_COUNTER_100NS_QUEUELEN_TYPE:
    // Measured against the system time in 100 ns units.
    if (dS == 0)
    {
      return std::nullopt;
    }
    return n / ToDouble(dS);

  case PERF_COUNTER_OBJ_TIME_QUEUELEN_TYPE:
    if (dO == 0)
    {
      return std::nullopt;
    }
    return n / ToDouble(dO);

  case PERF_AVERAGE_BULK:
    // (N1 - N0) / (B1 - B0): per operation counted by the base.
    if (dB == 0)
    {
      return std::nullopt;
    }
    return n / ToDouble(dB);

  case PERF_COUNTER_TIMER:
    if (dT == 0)
    {
      return std::nullopt;
    }
    return n * 100.0 / t;

  case PERF_100NSEC_TIMER:
    if (dS == 0)
    {
      return std::nullopt;
    }
    return n * 100.0 / ToDouble(dS);

  case PERF_OBJ_TIME_TIMER:
    if (dO == 0)
    {
      return std::nullopt;
    }
    return n * 100.0 / ToDouble(dO);

  case PERF_PRECISION_SYSTEM_TIMER:
  case PERF_PRECISION_100NS_TIMER:
  case PERF_PRECISION_OBJECT_TIMER:
  case PERF_SAMPLE_FRACTION:
    // The time (or the count) comes with the counter, in its base property.
    if (dB == 0)
    {
      return std::nullopt;
    }
    return n * 100.0 / ToDouble(dB);

  case PERF_COUNTER_TIMER_INV:
    if (dT == 0)
    {
      return std::nullopt;
    }
    return (1.0 - n / t) * 100.0;

  case PERF_100NSEC_TIMER_INV:
  {
    // The time difference in 100 ns units; a zero current frequency would divide by zero.
    if (cur.frequency == 0)
    {
      return std::nullopt;
    }
    const std::int64_t d = Divide(Times(dT, 10'000'000), cur.frequency);
    if (d == 0)
    {
      return std::nullopt;
    }
    return (1.0 - n / ToDouble(d)) * 100.0;
  }

  case PERF_COUNTER_MULTI_TIMER:
    if (dT == 0 || f == 0 || b == 0)
    {
      return std::nullopt;
    }
    return n / ToDouble(Divide(dT, f)) * 100.0 / ToDouble(b);

  case PERF_100NSEC_MULTI_TIMER:
    if (dT == 0 || b == 0)
    {
      return std::nullopt;
    }
    return n / t * 100.0 / ToDouble(b);

  case PERF_COUNTER_MULTI_TIMER_INV:
  case PERF_100NSEC_MULTI_TIMER_INV:
    if (dT == 0)
    {
      return std::nullopt;
    }
    return (ToDouble(b) - n / t) * 100.0;

  case PERF_AVERAGE_TIMER:
    // ((N1 - N0) / F) / (B1 - B0): seconds per operation counted by the base.
    if (dB == 0 || f == 0)
    {
      return std::nullopt;
    }
    return n / ToDouble(f) / ToDouble(dB);

  default:
    return std::nullopt;
  }
}
} // namespace

std::optional<double> ClipCounterValue(double value) noexcept
{
  if (TruncateToInt64(value) < 0)
  {
    return std::nullopt;
  }
  // Values in (-1, 0) truncate to zero and are reported as their magnitude.
  return std::fabs(value);
}

std::optional<double> ComputeCounterValue(
  const CounterSample& current, const CounterSample* previous, std::uint32_t counterType) noexcept
{
  // A rate needs two readings.
  if ((counterType & PERF_DELTA_COUNTER) != 0 && previous == nullptr)
  {
    return std::nullopt;
  }
  const std::optional<double> cooked = Cook(current, previous, counterType);
  if (!cooked)
  {
    return std::nullopt;
  }
  return ClipCounterValue(*cooked);
}
