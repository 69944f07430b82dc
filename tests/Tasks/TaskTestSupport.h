// Test doubles for tasks and the collector: a collection whose updates the test can hold and
// release, a factory that offers it under the type name "Fake" (and "FakePair", which comes
// with a companion collection), and a subscriber that records state changes. Every wait is on
// a condition, bounded by a limit that only a broken build reaches.
#pragma once

#include "CollectionBase.h"
#include "Task.h"

#include "Collector/Interfaces/ICollection.h"
#include "Collector/Interfaces/IUser.h"
#include "KeldaKernel/Exceptions.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace natc_task_test
{
using namespace std::chrono_literals;
using collector::ni::ICollection;
using collector::ni::ICollectionTypes;
using collector::ni::impl::CCollectionBase;
using collector::ni::impl::CCollectionFactory;
using collector::ni::impl::SCollectionParts;
using collector::ni::impl::SMadeCollection;

constexpr auto waitLimit = 30s;

// Opens once and for all: every update waits until the gate is open.
class CGate
{
public:
  void Open()
  {
    {
      const std::lock_guard lock(m_lock);
      m_open = true;
    }
    m_changed.notify_all();
  }
  void Pass()
  {
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [&] { return m_open; });
  }

private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  bool m_open = false;
};

// Counts its updates and remembers the user each saw. With a gate, updates wait at it.
class CFakeCollection : public CCollectionBase
{
public:
  CFakeCollection(const SCollectionParts& parts, std::shared_ptr<CGate> gate)
    : CCollectionBase(parts.log, parts.threadPool, parts.token, parts.host, parts.user, parts.cls),
      m_gate(std::move(gate))
  {
  }

  std::shared_ptr<collector::ni::IUser> CurrentUser() const { return user(); }
  int Updates() const { return m_updates.load(); }
  bool WaitUpdates(int count)
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] { return m_updates.load() >= count; });
  }

protected:
  void updateImpl() override
  {
    {
      const std::lock_guard lock(m_lock);
      ++m_updates;
    }
    m_changed.notify_all();
    if (m_gate)
    {
      m_gate->Pass();
    }
  }

private:
  std::shared_ptr<CGate> m_gate;
  std::atomic<int> m_updates{0};
  std::mutex m_lock;
  std::condition_variable m_changed;
};

// A plain collection that never runs: the companion of "FakePair".
class CCompanion : public ICollection
{
public:
  CCompanion() { UuidCreate(&m_id); }
  GUID GetId() const override { return m_id; }
  tstring GetName() const override { return {}; }
  States GetState() const override { return Stopped; }
  std::shared_ptr<collector::ni::IClass> GetClass() const override { return {}; }
  void SetUser(const std::shared_ptr<collector::ni::IUser>&) override {}
  void Run() override {}
  void Stop(bool) override {}

protected:
  void updateImpl() override {}

private:
  GUID m_id{};
};

// "Fake" and "FakePair" collections; every update of every collection waits at `gate` when one
// is given. "Broken" makers throw, "Null" makers return nothing.
inline std::shared_ptr<CCollectionFactory> MakeFakeFactory(const std::shared_ptr<CGate>& gate = nullptr)
{
  auto factory = std::make_shared<CCollectionFactory>();
  factory->Add(L"Fake", [gate](const SCollectionParts& parts) {
    return SMadeCollection{std::make_shared<CFakeCollection>(parts, gate), {}};
  });
  factory->Add(L"FakePair", [gate](const SCollectionParts& parts) {
    return SMadeCollection{std::make_shared<CFakeCollection>(parts, gate), {std::make_shared<CCompanion>()}};
  });
  factory->Add(L"Broken",
               [](const SCollectionParts&) -> SMadeCollection { KELDA_THROW(CKeldaException(L"Cannot make it")); });
  factory->Add(L"Null", [](const SCollectionParts&) { return SMadeCollection{}; });
  return factory;
}

// Records every state change per collection.
class CStateRecorder : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, ICollectionTypes::Records records) override
  {
    {
      const std::lock_guard lock(m_lock);
      m_records += records.size();
    }
    m_changed.notify_all();
  }

  void OnStateChanged(const GUID& id, const ICollectionTypes::IState& state) override
  {
    {
      const std::lock_guard lock(m_lock);
      m_states[id].push_back(state.GetState());
    }
    m_changed.notify_all();
  }

  // Waits until the latest state of `id` is `state`.
  bool WaitLatest(const GUID& id, ICollectionTypes::States state)
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] {
      const auto position = m_states.find(id);
      return position != m_states.end() && !position->second.empty() && position->second.back() == state;
    });
  }

  bool WaitRecords(std::size_t count)
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] { return m_records >= count; });
  }

  std::vector<ICollectionTypes::States> States(const GUID& id) const
  {
    const std::lock_guard lock(m_lock);
    const auto position = m_states.find(id);
    return position == m_states.end() ? std::vector<ICollectionTypes::States>{} : position->second;
  }

private:
  struct SLess
  {
    bool operator()(const GUID& left, const GUID& right) const { return std::memcmp(&left, &right, sizeof(GUID)) < 0; }
  };
  mutable std::mutex m_lock;
  std::condition_variable m_changed;
  std::map<GUID, std::vector<ICollectionTypes::States>, SLess> m_states;
  std::size_t m_records = 0;
};

inline bool SameGuid(const GUID& left, const GUID& right)
{
  return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}
} // namespace natc_task_test
