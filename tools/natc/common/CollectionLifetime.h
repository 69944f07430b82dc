// What a one-collection command needs around Run and Stop: a subscriber that wakes the command
// when the first update has ended, a gate that lets the records of only so many updates through,
// and a stop that also ends a collection still starting.
//   auto gate = std::make_shared<CRecordGate>(printer); collection->Subscribe(gate);
//   auto first = std::make_shared<CFirstUpdateWatcher>(gate); collection->Subscribe(first);
//   collection->Run(); ... first->Wait() ... StopCollection(*collection);
#pragma once

#include "Collector/Interfaces/ICollection.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

// Hands records and states on to another subscriber until Close. A command that promised so
// many updates closes it on the pool thread at the end of the last one, before the next can be
// scheduled. An update that still starts before the command's Stop belongs to no promised
// update: its records and its Running or Error are not passed on, and the stop's notices are
// passed on in the order Stopping, Stopped (they come from two threads, so Stopped can come
// first). Flush passes on a Stopped that no Stopping preceded.
class CRecordGate : public collector::ni::ICollectionTypes::ISubscriber
{
public:
  using ICollectionTypes = collector::ni::ICollectionTypes;

  explicit CRecordGate(std::shared_ptr<ICollectionTypes::ISubscriber> next) : m_next(std::move(next)) {}

  void OnRecords(const GUID& collectionId, ICollectionTypes::Records records) override
  {
    if (!m_closed.load())
      m_next->OnRecords(collectionId, std::move(records));
  }
  void OnStateChanged(const GUID& collectionId, const ICollectionTypes::IState& state) override
  {
    if (!m_closed.load())
    {
      m_next->OnStateChanged(collectionId, state);
      return;
    }
    const std::lock_guard lock(m_lock);
    if (state.GetState() == ICollectionTypes::Stopping)
    {
      m_next->OnStateChanged(collectionId, state);
      m_sawStopping = true;
      flushHeld();
    }
    else if (state.GetState() == ICollectionTypes::Stopped)
    {
      m_held.emplace(CHeldState{collectionId, state.GetState(), state.GetDescription()});
      if (m_sawStopping)
        flushHeld();
    }
  }
  void Close() { m_closed.store(true); }
  void Flush()
  {
    const std::lock_guard lock(m_lock);
    flushHeld();
  }

private:
  struct CHeldState : ICollectionTypes::IState
  {
    CHeldState(const GUID& id, ICollectionTypes::States value, tstring text)
      : collectionId(id), state(value), description(std::move(text))
    {
    }
    ICollectionTypes::States GetState() const override { return state; }
    tstring GetDescription() const override { return description; }
    GUID collectionId;
    ICollectionTypes::States state;
    tstring description;
  };

  void flushHeld()
  {
    if (m_held)
      m_next->OnStateChanged(m_held->collectionId, *m_held);
    m_held.reset();
  }

  const std::shared_ptr<ICollectionTypes::ISubscriber> m_next;
  std::atomic<bool> m_closed{false};
  std::mutex m_lock;
  bool m_sawStopping = false;
  std::optional<CHeldState> m_held;
};

// Remembers the first state after Starting, other than Stopping: Running or Error when the first
// update ended, Stopped when the collection ended before it. With a gate, closes it then.
class CFirstUpdateWatcher : public collector::ni::ICollectionTypes::ISubscriber
{
public:
  using States = collector::ni::ICollectionTypes::States;

  explicit CFirstUpdateWatcher(std::shared_ptr<CRecordGate> gate = nullptr) : m_gate(std::move(gate)) {}

  void OnRecords(const GUID&, collector::ni::ICollectionTypes::Records) override {}
  void OnStateChanged(const GUID&, const collector::ni::ICollectionTypes::IState& state) override
  {
    const States value = state.GetState();
    if (value == collector::ni::ICollectionTypes::Starting || value == collector::ni::ICollectionTypes::Stopping)
      return;
    {
      const std::lock_guard lock(m_lock);
      if (!m_first)
        m_first = value;
    }
    if (m_gate)
      m_gate->Close();
    m_changed.notify_all();
  }

  States Wait()
  {
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [&] { return m_first.has_value(); });
    return *m_first;
  }

private:
  const std::shared_ptr<CRecordGate> m_gate;
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::optional<States> m_first;
};

// A collection still Starting ignores Stop until its first update has run; Stop(true) waits for
// that update, so the second request finds it Running.
inline void StopCollection(collector::ni::ICollection& collection)
{
  for (int attempt = 0; attempt < 2 && collection.GetState() != collector::ni::ICollectionTypes::Stopped; ++attempt)
    collection.Stop(true);
}
