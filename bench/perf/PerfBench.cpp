// Cost of one CMiPerformanceCollection update on this machine: every counter (every property
// with a "CounterType" qualifier) of Win32_PerfRawData_PerfOS_Processor and
// Win32_PerfRawData_PerfProc_Process, read over MI, cooked, turned into records and targets.
// Reported as microseconds per counter value delivered ("us_per_value": real time of the timed
// updates over the values they delivered; "per_value" is the same figure in seconds) and values
// per update. The first update (no previous samples) runs before timing.
#include "ClassPool.h"
#include "HostPool.h"
#include "MiApplication.h"
#include "MiPerformanceCollection.h"
#include "UserPool.h"

#include "Cim/Machine/Classes.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Logger.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>

namespace
{
using collector::ni::ICollectionTypes;
using collector::ni::impl::CMiPerformanceCollection;
using collector::ni::impl::CPerfTargetCollection;
using Filter = collector::ni::performance::IMiPerfCollectionInit::CounterFilter;

class CBenchCollection : public CMiPerformanceCollection
{
public:
  using CMiPerformanceCollection::CMiPerformanceCollection;
  void UpdateOnce() { updateImpl(); }
};

class CValueCounter : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, ICollectionTypes::Records records) override { values += records.size(); }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState&) override {}
  std::size_t values = 0;
};

void AddCounters(const cim::ClassDecl& decl, std::vector<Filter>& filters)
{
  for (const auto& property : decl.properties)
    for (const auto& qualifier : property.qualifiers)
      if (qualifier.name == L"CounterType")
        filters.push_back({decl.name, property.name, false, decl.name + L":" + property.name, 1.0});
}

void BM_PerfUpdateProcessorAndProcess(benchmark::State& state)
{
  CKeldaLogger::instance().useStderr(false);
  const pool threadPool(1);
  collector::ni::impl::CHostPool hosts;
  collector::ni::impl::CUserPool users;
  collector::ni::impl::CClassPool classes;
  GUID id{};
  UuidCreate(&id);
  auto collection = std::make_shared<CBenchCollection>(
    std::make_shared<CLog>(nullptr, L"[NatC]"), threadPool, create_cancellation(), hosts.Create(L"localhost"),
    users.Create(L"", L""), classes.Create(id, L"MiPerf"), std::make_shared<CPerfTargetCollection>());
  collection->SetApplication(CMiApplication::CreateInstance());
  std::vector<Filter> filters;
  AddCounters(*cim::machine::ProcessorPerfClass(), filters);
  AddCounters(*cim::machine::ProcessPerfClass(), filters);
  collection->SetCounterFilter(filters);
  auto counter = std::make_shared<CValueCounter>();
  collection->Subscribe(counter);
  collection->UpdateOnce();

  counter->values = 0;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state)
    collection->UpdateOnce();
  const std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - start;
  const auto values = static_cast<double>(counter->values);
  state.counters["values_per_update"] = benchmark::Counter(values / static_cast<double>(state.iterations()));
  // The timed updates' real time over the values they delivered: in µs as a plain number, and
  // the same as the library's inverted rate (seconds, shown with an SI prefix).
  state.counters["us_per_value"] = benchmark::Counter(values > 0 ? elapsed.count() / values : 0.0);
  state.counters["per_value"] = benchmark::Counter(values, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["counters"] = static_cast<double>(filters.size());
}
BENCHMARK(BM_PerfUpdateProcessorAndProcess)->Unit(benchmark::kMillisecond)->UseRealTime();
} // namespace

BENCHMARK_MAIN();
