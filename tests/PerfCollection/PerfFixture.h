// Shared pieces of the performance collection tests: a collection whose update a test runs
// directly, a subscriber that keeps every batch and wakes waiters, and record readers.
#pragma once

#include "MiPerformanceCollection.h"
#include "TestSupport.h"

#include "Collector.Interfaces.Impl.h"
#include "MiApplication.h"

#include <condition_variable>
#include <mutex>
#include <vector>

namespace perf_test
{
using collector::ni::ICollectionTypes;
using collector::ni::IRecord;
using collector::ni::impl::CMiPerformanceCollection;
using collector::ni::impl::CPerfTargetCollection;
using Filter = collector::ni::performance::IMiPerfCollectionInit::CounterFilter;

// Exposes one update body, so that single-threaded tests decide when samples are taken.
class CTestPerfCollection : public CMiPerformanceCollection
{
public:
  using CMiPerformanceCollection::CMiPerformanceCollection;
  void UpdateOnce() { updateImpl(); }
};

// Keeps every batch in order; waits are on a condition.
class CBatches : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, ICollectionTypes::Records records) override
  {
    {
      const std::lock_guard lock(m_lock);
      m_batches.emplace_back(records.begin(), records.end());
    }
    m_changed.notify_all();
  }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState& state) override
  {
    {
      const std::lock_guard lock(m_lock);
      m_states.push_back(state.GetState());
    }
    m_changed.notify_all();
  }
  std::vector<std::vector<std::shared_ptr<IRecord>>> Batches() const
  {
    const std::lock_guard lock(m_lock);
    return m_batches;
  }
  std::vector<ICollectionTypes::States> States() const
  {
    const std::lock_guard lock(m_lock);
    return m_states;
  }
  bool WaitBatches(std::size_t count) const
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, natc_test::waitLimit, [&] { return m_batches.size() >= count; });
  }

private:
  mutable std::mutex m_lock;
  mutable std::condition_variable m_changed;
  std::vector<std::vector<std::shared_ptr<IRecord>>> m_batches;
  std::vector<ICollectionTypes::States> m_states;
};

// One counter record as read back.
struct CounterRecord
{
  COleDateTimeEx time;
  __int64 interval = 0;
  double value = 0;
  __int64 id = 0;
};

inline CounterRecord ReadCounter(IRecord& record)
{
  return {std::get<COleDateTimeEx>(record.GetField(L"t")->GetValue()),
          std::get<__int64>(record.GetField(L"i")->GetValue()), std::get<double>(record.GetField(L"v")->GetValue()),
          std::get<__int64>(record.GetField(L"id")->GetValue())};
}

// One target record as read back (its record type is the operation code).
struct TargetRecord
{
  std::uint32_t operation = 0;
  collector::ni::FieldValue value;
  tstring instance;
  __int64 id = 0;
};

inline TargetRecord ReadTarget(IRecord& record)
{
  return {dynamic_cast<collector::ni::ICompositionRecord&>(record).GetType(), record.GetField(L"c")->GetValue(),
          std::get<tstring>(record.GetField(L"ins")->GetValue()), std::get<__int64>(record.GetField(L"id")->GetValue())};
}
} // namespace perf_test
