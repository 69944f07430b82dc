// Storage shared by the host, user, class and task pools (and a task's collections): objects
// under their GUID in an ordered map guarded by a critical section. Keys are ordered by the 16
// raw bytes of the GUID. Adding under a present identifier replaces the entry; looking up a
// missing identifier gives an empty pointer. T must offer GetId() returning the GUID.
#pragma once

#include "Collector/Interfaces/Impl/CriticalSection.h"
#include "Platform/Windows.h"

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace collector::ni::impl
{
struct SGuidMemoryLess
{
  bool operator()(const GUID& left, const GUID& right) const noexcept
  {
    return std::memcmp(&left, &right, sizeof(GUID)) < 0;
  }
};

template <class T>
class CPoolBase
{
public:
  using Map = std::map<GUID, std::shared_ptr<T>, SGuidMemoryLess>;

  CPoolBase() = default;
  CPoolBase(const CPoolBase&) = delete;
  CPoolBase& operator=(const CPoolBase&) = delete;
  ~CPoolBase() = default;

  // Stores the object under its own identifier, replacing any entry there; returns it.
  std::shared_ptr<T> Add(std::shared_ptr<T> object)
  {
    const GUID id = object->GetId();
    return AddUnder(id, std::move(object));
  }

  // Stores the object under the given identifier, replacing any entry there; returns it.
  std::shared_ptr<T> AddUnder(const GUID& id, std::shared_ptr<T> object)
  {
    // Declared before the guard: a replaced object is released after the lock is left, so its
    // destructor never runs under the pool's lock.
    std::shared_ptr<T> replaced;
    std::lock_guard guard(m_lock);
    auto [position, inserted] = m_items.try_emplace(id, object);
    if (!inserted)
    {
      replaced = std::exchange(position->second, object);
    }
    return object;
  }

  // The object under the identifier, or an empty pointer.
  std::shared_ptr<T> Get(const GUID& id) const
  {
    std::lock_guard guard(m_lock);
    const auto position = m_items.lower_bound(id);
    if (position == m_items.end() || m_items.key_comp()(id, position->first))
      return {};
    return position->second;
  }

  // Forgets the object under the identifier; false when there was none.
  bool Erase(const GUID& id)
  {
    std::shared_ptr<T> erased;
    std::lock_guard guard(m_lock);
    const auto position = m_items.find(id);
    if (position == m_items.end())
      return false;
    erased = std::move(position->second);
    m_items.erase(position);
    return true;
  }

  // The identifier and object of the first entry, in identifier order, whose object satisfies
  // match; an empty pointer when none does.
  template <class Match>
  std::pair<GUID, std::shared_ptr<T>> FindIf(Match&& match) const
  {
    std::lock_guard guard(m_lock);
    for (const auto& entry : m_items)
    {
      if (match(*entry.second))
        return entry;
    }
    return {GUID{}, nullptr};
  }

  // A copy of every object, in identifier order.
  std::vector<std::shared_ptr<T>> Snapshot() const
  {
    std::lock_guard guard(m_lock);
    std::vector<std::shared_ptr<T>> items;
    items.reserve(m_items.size());
    for (const auto& entry : m_items)
      items.push_back(entry.second);
    return items;
  }

  std::size_t Size() const
  {
    std::lock_guard guard(m_lock);
    return m_items.size();
  }

  // Calls visit(object) for every object present when the walk begins, in identifier order,
  // while holding the lock, so that adds and removals from other threads wait for the walk.
  // The walk goes over a copy, so visit may add or erase (the lock is recursive) on its thread.
  template <class Visit>
  void ForEach(Visit&& visit) const
  {
    std::lock_guard guard(m_lock);
    const std::vector<std::shared_ptr<T>> items = Snapshot();
    for (const auto& item : items)
      visit(item);
  }

protected:
  // For derived pools that need several steps under one lock.
  CCriticalSection& Lock() const noexcept { return m_lock; }

private:
  mutable CCriticalSection m_lock;
  Map m_items;
};
} // namespace collector::ni::impl
