// The tasks of a collector: Deploy binds a host and a user of the collector's pools into a new
// task, Get finds it, Remove forgets it (its collections keep running for whoever holds them).
// The collector walks the pool under its lock to cancel or stop every task (CancelAll, StopAll),
// so a Deploy or Remove that comes meanwhile waits for the walk to end; a waiting stop waits
// for running updates after the walk.
//   auto task = taskPool->Deploy(L"main", hostId, userId);   // E_INVALIDARG for unknown ids
#pragma once

#include "ClassPool.h"
#include "HostPool.h"
#include "Log.h"
#include "Task.h"
#include "UserPool.h"

#include "Collector/Interfaces/ITask.h"
#include "Collector/Interfaces/Impl/PoolBase.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Pool.h"

#include <memory>
#include <string_view>

namespace collector::ni::impl
{
class CTaskPool : public ITaskPool, public CPoolBase<CTask>
{
public:
  CTaskPool(std::shared_ptr<CClassPool> classPool, std::shared_ptr<CUserPool> userPool,
            std::shared_ptr<CHostPool> hostPool, std::shared_ptr<ICancellationToken> cancellation, pool threadPool,
            std::shared_ptr<CLog> log,
            std::shared_ptr<const CCollectionFactory> factory = CCollectionFactory::BuiltIn());

  std::shared_ptr<ITask> Deploy(std::wstring_view name, GUID hostId, GUID userId) override;
  std::shared_ptr<ITask> Get(GUID id) override;
  void Remove(GUID id) override;

  // Cancel or stop every task, in identifier order, holding the pool's lock for the walk;
  // StopAll(true) then waits for every task's running updates with the lock left.
  void CancelAll();
  void StopAll(bool sync);

private:
  std::shared_ptr<CClassPool> m_classPool;
  std::shared_ptr<CUserPool> m_userPool;
  std::shared_ptr<CHostPool> m_hostPool;
  std::shared_ptr<ICancellationToken> m_cancellation;
  pool m_pool;
  std::shared_ptr<CLog> m_log;
  std::shared_ptr<const CCollectionFactory> m_factory;
};
} // namespace collector::ni::impl
