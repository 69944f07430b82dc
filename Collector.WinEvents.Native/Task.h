// A task binds one host and one user and owns the collections that run against that host with
// that user's credentials. The task pool makes tasks (CTaskPool::Deploy); the caller creates
// collections in a task by exact type name, configures them through their init interface and
// runs them:
//   auto events = task->CreateCollection(L"WindowsEvents");   // empty pointer for unknown types
//   task->SwitchUser(otherUserId);                            // every collection connects anew
//   task->Stop(true);
// Which type names exist is decided by a CCollectionFactory: BuiltIn() offers the collections of
// this library; tests hand a task their own.
#pragma once

#include "ClassPool.h"
#include "Log.h"
#include "UserPool.h"

#include "Collector/Interfaces/ICollection.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/ITask.h"
#include "Collector/Interfaces/IUser.h"
#include "Collector/Interfaces/Impl/PoolBase.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Pool.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace collector::ni::impl
{
// What every new collection is made with.
struct SCollectionParts
{
  std::shared_ptr<CLog> log;
  pool threadPool;
  // A child of the task's token.
  std::shared_ptr<ICancellationToken> token;
  std::shared_ptr<IClass> cls;
  std::shared_ptr<IHost> host;
  std::shared_ptr<IUser> user;
};

// A collection made by a factory, and the helper collections that belong to it and that a
// caller may look up by identifier but that the task does not run or stop itself (the targets
// of a performance collection).
struct SMadeCollection
{
  std::shared_ptr<ICollection> collection;
  std::vector<std::shared_ptr<ICollection>> companions;
};

// The table of collection types: exact type name -> maker.
class CCollectionFactory
{
public:
  using Maker = std::function<SMadeCollection(const SCollectionParts&)>;

  // The collections of this library ("WindowsEvents", "MiProp", "MiPerf", as far as they are
  // built in); the MI collections of one factory share one MI application, made on first need.
  static std::shared_ptr<CCollectionFactory> BuiltIn();

  // Adds or replaces the maker of `type`.
  void Add(std::wstring type, Maker maker);
  // The maker of exactly `type` (same length, same code units), or null.
  const Maker* Find(std::wstring_view type) const;

private:
  std::map<std::wstring, Maker, std::less<>> m_makers;
};

class CTask : public ITask, public CPoolBase<ICollection>
{
public:
  // State numbers (GetState).
  enum TaskStates : int
  {
    Created = 0,
    CollectionCreated = 1,
    Cancelled = 2,
    Stopping = 5,
    Stopped = 6,
  };

  CTask(std::shared_ptr<CLog> log, pool threadPool, std::shared_ptr<ICancellationToken> token,
        std::shared_ptr<IHost> host, std::shared_ptr<IUser> user, std::shared_ptr<CClassPool> classPool,
        const std::shared_ptr<CUserPool>& userPool,
        std::shared_ptr<const CCollectionFactory> factory = CCollectionFactory::BuiltIn());
  ~CTask() override;
  CTask(const CTask&) = delete;
  CTask& operator=(const CTask&) = delete;

  GUID GetId() const override { return m_id; }
  std::shared_ptr<ICollection> CreateCollection(std::wstring_view type) override;
  void RemoveCollection(GUID id) override;
  std::shared_ptr<ICollection> GetCollection(GUID id) override;
  int GetState() const override { return m_state.load(); }
  GUID GetHostId() const override;
  GUID GetUserId() const override;
  GUID SwitchUser(GUID userId) override;
  void Cancel() override;
  void Stop(bool sync) override;

private:
  std::shared_ptr<IUser> currentUser() const;
  // The key and collection filed under id, or found by its own identifier (GetId).
  std::pair<GUID, std::shared_ptr<ICollection>> findCollection(const GUID& id) const;

  std::atomic<int> m_state{Created};
  std::shared_ptr<CLog> m_log;
  pool m_pool;
  std::shared_ptr<ICancellationToken> m_cancellation;
  GUID m_id{};
  std::shared_ptr<IHost> m_host;
  mutable std::mutex m_userLock;
  // Held by SwitchUser and by CreateCollection from reading the user to filing the collection,
  // so that a switch reaches every collection and two switches report consistent previous users.
  std::mutex m_switchLock;
  std::shared_ptr<IUser> m_user;
  std::shared_ptr<CClassPool> m_classPool;
  std::weak_ptr<CUserPool> m_userPool;
  std::shared_ptr<const CCollectionFactory> m_factory;
  // Companions of the collections (see SMadeCollection), under their own identifiers, with
  // the identifier of the collection they belong to.
  struct SCompanion
  {
    GUID owner;
    std::shared_ptr<ICollection> collection;
  };
  mutable std::mutex m_companionLock;
  std::map<GUID, SCompanion, SGuidMemoryLess> m_companions;
};
} // namespace collector::ni::impl
