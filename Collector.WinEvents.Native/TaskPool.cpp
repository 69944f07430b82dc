#include "TaskPool.h"

#include "KeldaKernel/Exceptions.h"

#include <fmt/xchar.h>
#include <utility>
#include <vector>

namespace collector::ni::impl
{
namespace
{
tstring GuidText(const GUID& id)
{
  wchar_t text[39] = {};
  StringFromGUID2(id, text, 39);
  return text;
}
} // namespace

// The pool handle is taken by value: the task pool keeps its own copy and hands it on.
CTaskPool::CTaskPool(std::shared_ptr<CClassPool> classPool, std::shared_ptr<CUserPool> userPool,
                     std::shared_ptr<CHostPool> hostPool, std::shared_ptr<ICancellationToken> cancellation,
                     pool threadPool, // NOLINT(performance-unnecessary-value-param)
                     std::shared_ptr<CLog> log, std::shared_ptr<const CCollectionFactory> factory)
  : m_classPool(std::move(classPool)),
    m_userPool(std::move(userPool)),
    m_hostPool(std::move(hostPool)),
    m_cancellation(std::move(cancellation)),
    m_pool(threadPool),
    m_log(std::move(log)),
    m_factory(std::move(factory))
{
}

std::shared_ptr<ITask> CTaskPool::Deploy(std::wstring_view name, GUID hostId, GUID userId)
{
  // The host is checked first, so a call with both unknown reports the host.
  std::shared_ptr<IHost> host = m_hostPool->Get(hostId);
  if (!host)
  {
    KELDA_THROW(CHResultException(E_INVALIDARG, fmt::format(L"Host {} not found", GuidText(hostId))));
  }
  std::shared_ptr<IUser> user = m_userPool->Get(userId);
  if (!user)
  {
    KELDA_THROW(CHResultException(E_INVALIDARG, fmt::format(L"User {} not found", GuidText(userId))));
  }
  // Every task shares the collector's cancellation source; each collection gets a child of it.
  auto task = std::make_shared<CTask>(m_log, m_pool, m_cancellation, std::move(host),
                                      std::move(user), m_classPool, m_userPool, m_factory);
  m_log->Debug(fmt::format(L"Task '{}' deployed as {} on host {}", name, GuidText(task->GetId()), GuidText(hostId)));
  return Add(std::move(task));
}

std::shared_ptr<ITask> CTaskPool::Get(GUID id)
{
  return CPoolBase<CTask>::Get(id);
}

void CTaskPool::Remove(GUID id)
{
  Erase(id);
}

void CTaskPool::CancelAll()
{
  ForEach([](const std::shared_ptr<CTask>& task) { task->Cancel(); });
}

void CTaskPool::StopAll(bool sync)
{
  // Every collection is told to stop during the walk; the wait for running updates comes after
  // it, outside the lock, as an update's subscriber may call into this pool before it ends.
  // The wait covers the tasks the walk stopped, also those a subscriber removed meanwhile.
  std::vector<std::shared_ptr<CTask>> stopped;
  ForEach([&stopped](const std::shared_ptr<CTask>& task) {
    task->Stop(false);
    stopped.push_back(task);
  });
  if (sync)
  {
    for (const auto& task : stopped)
    {
      task->Stop(true);
    }
  }
}
} // namespace collector::ni::impl
