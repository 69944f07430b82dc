// Cost of building an event record (the eight event fields) and looking one field up:
// time per record and heap allocations per record. The values are chosen so that the texts
// fit in no small-string buffer, as real event texts do; the "IntegerValues" variants use
// values that need no allocation, to show what the record itself costs.
#include "Collector.Interfaces.Impl.h"
#include "CountingAllocator.h"

#include <benchmark/benchmark.h>

using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
const tstring kSource = L"Service Control Manager";
const tstring kDescription = L"The Windows Update service entered the running state.";
const tstring kInitiator = L"S-1-5-21-3623811015-3361044348-30300820-1013";

void AddEventFields(CRecordOnVectorNoKey& record, const SEventFieldNames& names, __int64 id)
{
  record.AddField(names.SourceName, kSource);
  record.AddField(names.Description, kDescription);
  record.AddField(names.CreatedTime, COleDateTimeEx(45000.25));
  record.AddField(names.InitiatedBy, kInitiator);
  record.AddField(names.EventType, 4);
  record.AddField(names.Data, std::vector<tstring>{});
  record.AddField(names.EventCode, 7036);
  record.AddField(names.InternalId, id);
}

void AddIntegerFields(CRecordOnVectorNoKey& record, const SEventFieldNames& names, __int64 id)
{
  record.AddField(names.SourceName, id);
  record.AddField(names.Description, id);
  record.AddField(names.CreatedTime, COleDateTimeEx(45000.25));
  record.AddField(names.InitiatedBy, id);
  record.AddField(names.EventType, 4);
  record.AddField(names.Data, id);
  record.AddField(names.EventCode, 7036);
  record.AddField(names.InternalId, id);
}

template <class Fill>
void RunKeyless(benchmark::State& state, Fill fill)
{
  const auto& names = EventFieldNames();
  __int64 id = 0;
  const auto before = bench::AllocationCount();
  for (auto _ : state)
  {
    CRecordOnVectorNoKey record(1, 8);
    fill(record, names, ++id);
    benchmark::DoNotOptimize(record.FindField(L"EventCode"));
  }
  const auto allocations = bench::AllocationCount() - before;
  state.counters["allocs/record"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
}

void BM_EventRecordNoKey(benchmark::State& state)
{
  RunKeyless(state, AddEventFields);
}
BENCHMARK(BM_EventRecordNoKey);

void BM_EventRecordNoKey_IntegerValues(benchmark::State& state)
{
  RunKeyless(state, AddIntegerFields);
}
BENCHMARK(BM_EventRecordNoKey_IntegerValues);

// What an event producer does: a keyed record (InternalId in a separately made key field),
// made on the heap with make_shared to be handed to subscribers.
void BM_EventRecordKeyedShared(benchmark::State& state)
{
  const auto& names = EventFieldNames();
  std::shared_ptr<IClass> keyClass;
  __int64 id = 0;
  const auto before = bench::AllocationCount();
  for (auto _ : state)
  {
    ++id;
    auto record = std::make_shared<CRecordOnVector>(
        CKey(keyClass, {std::make_shared<CField>(names.InternalId, id)}), 1, 8);
    AddEventFields(*record, names, id);
    benchmark::DoNotOptimize(record->FindField(L"EventCode"));
  }
  const auto allocations = bench::AllocationCount() - before;
  state.counters["allocs/record"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_EventRecordKeyedShared);

// Lookup alone in a record that is already sorted.
void BM_LookupSorted(benchmark::State& state)
{
  CRecordOnVectorNoKey record(1, 8);
  AddEventFields(record, EventFieldNames(), 1);
  record.FindField(L"Data");
  for (auto _ : state)
    benchmark::DoNotOptimize(record.FindField(L"EventCode"));
}
BENCHMARK(BM_LookupSorted);
} // namespace

BENCHMARK_MAIN();
