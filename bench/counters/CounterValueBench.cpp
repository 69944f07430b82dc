// ns per ComputeCounterValue call: one benchmark per common counter family, and one over a
// mix of the types a processor, memory and disk load delivers.
#include "CounterValue.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>

namespace
{
// Positional on purpose: the fields in their declaration order.
CounterSample Sample(std::int64_t value, std::int64_t timestamp, std::int64_t frequency) // NOLINT(bugprone-easily-swappable-parameters)
{
  CounterSample sample;
  sample.value = value;
  sample.timestamp = timestamp;
  sample.frequency = frequency;
  return sample;
}

void BM_ComputeCounterValue(benchmark::State& state, std::uint32_t type, bool withPrevious)
{
  const CounterSample previous = Sample(1'000'000, 50'000'000, 10'000'000);
  CounterSample current = Sample(6'000'000, 60'000'000, 10'000'000);
  for (auto _ : state)
  {
    // Keep the compiler from folding the call over constant inputs.
    benchmark::DoNotOptimize(current);
    benchmark::DoNotOptimize(ComputeCounterValue(current, withPrevious ? &previous : nullptr, type));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

BENCHMARK_CAPTURE(BM_ComputeCounterValue, RawCount, PERF_COUNTER_LARGE_RAWCOUNT, true);
BENCHMARK_CAPTURE(BM_ComputeCounterValue, CounterCounter, PERF_COUNTER_COUNTER, true);
BENCHMARK_CAPTURE(BM_ComputeCounterValue, Timer100ns, PERF_100NSEC_TIMER, true);
BENCHMARK_CAPTURE(BM_ComputeCounterValue, Timer100nsInv, PERF_100NSEC_TIMER_INV, true);
BENCHMARK_CAPTURE(BM_ComputeCounterValue, RateFirstReading, PERF_COUNTER_COUNTER, false);
BENCHMARK_CAPTURE(BM_ComputeCounterValue, Unknown, PERF_COUNTER_NODATA, true);

// A varying mix, so branch prediction cannot learn a single type.
void BM_ComputeCounterValueMix(benchmark::State& state)
{
  constexpr std::array<std::uint32_t, 8> types = {
    PERF_100NSEC_TIMER_INV, PERF_100NSEC_TIMER, PERF_COUNTER_COUNTER, PERF_COUNTER_LARGE_RAWCOUNT,
    PERF_COUNTER_BULK_COUNT, PERF_COUNTER_RAWCOUNT, PERF_RAW_FRACTION, PERF_COUNTER_QUEUELEN_TYPE,
  };
  const CounterSample previous = Sample(1'000'000, 50'000'000, 10'000'000);
  const CounterSample current = Sample(6'000'000, 60'000'000, 10'000'000);
  std::size_t i = 0;
  for (auto _ : state)
  {
    benchmark::DoNotOptimize(ComputeCounterValue(current, &previous, types[i]));
    i = (i * 5 + 3) & 7;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_ComputeCounterValueMix);
} // namespace

BENCHMARK_MAIN();
