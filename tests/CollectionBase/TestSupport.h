// Test doubles for the collection framework: a subscriber that records notifications, hosts
// and classes with fixed names, and a collection whose update follows a script that the test
// controls; the log capture comes from TestSupport/LogCapture.h. Waits are on conditions,
// bounded by a generous limit.
#pragma once

#include "CollectionBase.h"

#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IRecord.h"
#include "Collector/Interfaces/IUser.h"
#include "KeldaKernel/Exceptions.h"
#include "KeldaKernel/Logger.h"
#include "TestSupport/LogCapture.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace natc_test
{
using namespace std::chrono_literals;
using collector::ni::ICollectionTypes;

struct StateChange
{
  ICollectionTypes::States state;
  std::wstring description;
  GUID collection;
};

class CRecordingSubscriber : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID& collectionId, ICollectionTypes::Records records) override
  {
    {
      const std::lock_guard lock(m_lock);
      m_recordCollection = collectionId;
      m_records.assign(records.begin(), records.end());
      ++m_recordCalls;
    }
    m_changed.notify_all();
  }

  void OnStateChanged(const GUID& collectionId, const ICollectionTypes::IState& state) override
  {
    {
      const std::lock_guard lock(m_lock);
      m_changes.push_back({state.GetState(), state.GetDescription(), collectionId});
    }
    m_changed.notify_all();
  }

  std::vector<StateChange> Changes() const
  {
    const std::lock_guard lock(m_lock);
    return m_changes;
  }

  std::vector<ICollectionTypes::States> States() const
  {
    std::vector<ICollectionTypes::States> states;
    for (const auto& change : Changes())
    {
      states.push_back(change.state);
    }
    return states;
  }

  // Waits until `state` has been notified `times` times in all.
  bool WaitFor(ICollectionTypes::States state, std::size_t times = 1) const
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] {
      std::size_t count = 0;
      for (const auto& change : m_changes)
      {
        count += change.state == state ? 1 : 0;
      }
      return count >= times;
    });
  }

  std::vector<std::shared_ptr<collector::ni::IRecord>> Records() const
  {
    const std::lock_guard lock(m_lock);
    return m_records;
  }
  GUID RecordCollection() const
  {
    const std::lock_guard lock(m_lock);
    return m_recordCollection;
  }
  int RecordCalls() const
  {
    const std::lock_guard lock(m_lock);
    return m_recordCalls;
  }

private:
  mutable std::mutex m_lock;
  mutable std::condition_variable m_changed;
  std::vector<StateChange> m_changes;
  std::vector<std::shared_ptr<collector::ni::IRecord>> m_records;
  GUID m_recordCollection{};
  int m_recordCalls = 0;
};

// A host, class or user that is nothing but its name.
template <class Interface>
class CFixedNamed : public Interface
{
public:
  explicit CFixedNamed(std::wstring name) : m_name(std::move(name)) {}
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return m_name; }

private:
  std::wstring m_name;
};

using CFixedHost = CFixedNamed<collector::ni::IHost>;
using CFixedClass = CFixedNamed<collector::ni::IClass>;

class CFixedUser : public CFixedNamed<collector::ni::IUser>
{
public:
  using CFixedNamed::CFixedNamed;
  tstring GetDomain() const override { return {}; }
  tstring GetUserName() const override { return GetName(); }
  tstring GetPassword() const override { return {}; }
};

// What one call of updateImpl does.
enum class Step
{
  Succeed,
  Fail,             // throws an ordinary error (E_FAIL, "Update broke")
  FailCancelled,    // throws HRESULT 0x800704C7
  Block,            // waits for Release(), then succeeds
  BlockThenLog,     // waits for Release(), then logs (an interruption point), then succeeds
  CallHook,         // calls the hook given to SetHook, then succeeds
};

// Calls past the end of the script block.
class CScriptedCollection : public collector::ni::impl::CCollectionBase
{
public:
  using CCollectionBase::CCollectionBase;

  void Script(std::vector<Step> steps)
  {
    const std::lock_guard lock(m_lock);
    m_script.assign(steps.begin(), steps.end());
  }

  // Lets one blocked (or the next blocking) call go on.
  void Release()
  {
    {
      const std::lock_guard lock(m_lock);
      ++m_releases;
    }
    m_changed.notify_all();
  }

  // What a Step::CallHook update does before it succeeds.
  void SetHook(std::function<void()> hook)
  {
    const std::lock_guard lock(m_lock);
    m_hook = std::move(hook);
  }

  // Lets every call, now and later, go on at once.
  void ReleaseAll()
  {
    {
      const std::lock_guard lock(m_lock);
      m_releaseAll = true;
    }
    m_changed.notify_all();
  }

  // Waits until updateImpl has been entered `calls` times.
  bool WaitCalls(int calls)
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] { return m_calls >= calls; });
  }

  int Calls()
  {
    const std::lock_guard lock(m_lock);
    return m_calls;
  }

  void UpdateNow() { update(); }
  void Publish(Records records) { notifyRecords(records); }
  std::int32_t Internal() const { return internalState(); }
  COleDateTimeSpan Period() const { return updatePeriod(); }
  std::shared_ptr<collector::ni::IUser> CurrentUser() const { return user(); }
  // The user that the latest update saw.
  std::shared_ptr<collector::ni::IUser> SeenUser()
  {
    const std::lock_guard lock(m_lock);
    return m_seenUser;
  }
  const std::shared_ptr<CLog>& Log() const { return log(); }

protected:
  void updateImpl() override
  {
    Step step = Step::Block;
    {
      const std::lock_guard lock(m_lock);
      ++m_calls;
      m_seenUser = user();
      if (!m_script.empty())
      {
        step = m_script.front();
        m_script.pop_front();
      }
    }
    m_changed.notify_all();
    switch (step)
    {
    case Step::Succeed:
      return;
    case Step::Fail:
      KELDA_THROW(CKeldaException(L"Update broke"));
    case Step::FailCancelled:
      KELDA_THROW(CHResultException(HRESULT_FROM_WIN32(ERROR_CANCELLED)));
    case Step::CallHook: {
      std::function<void()> hook;
      {
        const std::lock_guard lock(m_lock);
        hook = m_hook;
      }
      if (hook)
      {
        hook();
      }
      return;
    }
    case Step::Block:
    case Step::BlockThenLog: {
      std::unique_lock lock(m_lock);
      m_changed.wait(lock, [&] { return m_releaseAll || m_releases > 0; });
      if (!m_releaseAll)
      {
        --m_releases;
      }
    }
      if (step == Step::BlockThenLog)
      {
        log()->Info(L"Released");
      }
      return;
    }
  }

private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::deque<Step> m_script;
  int m_calls = 0;
  std::shared_ptr<collector::ni::IUser> m_seenUser;
  int m_releases = 0;
  bool m_releaseAll = false;
  std::function<void()> m_hook;
};
} // namespace natc_test
