// Cost of handing one record to one subscriber through a collection (notifyRecords): time and
// heap allocations per notification, the record being made beforehand.
#include "CollectionBase.h"
#include "CountingAllocator.h"

#include "Collector/Interfaces/IRecord.h"
#include "Collector.Interfaces.Impl.h"

#include <benchmark/benchmark.h>

using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
class CPublishingCollection : public CCollectionBase
{
public:
  using CCollectionBase::CCollectionBase;
  void Publish(Records records) { notifyRecords(records); }

protected:
  void updateImpl() override {}
};

class CCountingSubscriber : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, ICollectionTypes::Records records) override { m_records += records.size(); }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState&) override {}
  std::size_t m_records = 0;
};

void BM_NotifyOneRecordOneSubscriber(benchmark::State& state)
{
  const pool workers(1);
  auto collection = std::make_shared<CPublishingCollection>(std::make_shared<CLog>(nullptr, L"[Bench]"), workers,
                                                            nullptr, nullptr, nullptr, nullptr);
  auto subscriber = std::make_shared<CCountingSubscriber>();
  collection->Subscribe(subscriber);
  auto record = std::make_shared<CRecordOnVectorNoKey>(1, 8);
  const std::shared_ptr<IRecord> shared = record;
  const auto before = bench::AllocationCount();
  for (auto _ : state)
  {
    collection->Publish({&shared, 1});
  }
  const auto allocations = bench::AllocationCount() - before;
  state.counters["allocs/notification"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
  benchmark::DoNotOptimize(subscriber->m_records);
}
BENCHMARK(BM_NotifyOneRecordOneSubscriber);
} // namespace
