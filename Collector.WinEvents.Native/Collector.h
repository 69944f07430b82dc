// The top object behind collector::win_events::create_collector: it owns the "[NatC]" log, a
// child of the caller's cancellation token and the four pools (hosts, users, classes, tasks),
// hands the pools out, and cancels or stops every deployed task. A pool handed out lives on
// after the collector is released.
#pragma once

#include "ClassPool.h"
#include "HostPool.h"
#include "Log.h"
#include "TaskPool.h"
#include "UserPool.h"

#include "Collector/Interfaces/ICollector.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Pool.h"

#include <memory>

namespace collector::ni::impl
{
class CCollector : public ICollector
{
public:
  CCollector(pool threadPool, const std::shared_ptr<ICancellationToken>& token,
             std::shared_ptr<const CCollectionFactory> factory = CCollectionFactory::BuiltIn());

  std::shared_ptr<IHostPool> GetHostPool() override { return m_hostPool; }
  std::shared_ptr<IUserPool> GetUserPool() override { return m_userPool; }
  std::shared_ptr<ITaskPool> GetTaskPool() override { return m_taskPool; }
  std::shared_ptr<IClassPool> GetClassPool() override { return m_classPool; }
  void Cancel() override;
  void Stop(bool sync) override;
  // Always throws CHResultException(E_NOTIMPL): the operation has no implementation.
  int GetState() override;

private:
  // Released in reverse order: the pools first, the log last.
  std::shared_ptr<CLog> m_log;
  pool m_pool;
  std::shared_ptr<ICancellationToken> m_cancellation;
  std::shared_ptr<CTaskPool> m_taskPool;
  std::shared_ptr<CHostPool> m_hostPool;
  std::shared_ptr<CUserPool> m_userPool;
  std::shared_ptr<CClassPool> m_classPool;
};
} // namespace collector::ni::impl
