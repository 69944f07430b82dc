#include "Collector.h"

#include "Collector/Interfaces/FieldNames.h"
#include "Collector/WinEvents/CreateCollector.h"
#include "KeldaKernel/Exceptions.h"

#include <utility>

namespace collector::ni::impl
{
// The pool handle is taken by value: the collector keeps its own copy and hands it on.
CCollector::CCollector(pool threadPool, // NOLINT(performance-unnecessary-value-param)
                       const std::shared_ptr<ICancellationToken>& token,
                       std::shared_ptr<const CCollectionFactory> factory)
  : m_log(std::make_shared<CLog>(nullptr, L"[NatC]")),
    m_pool(threadPool),
    m_cancellation(create_child_cancellation(token))
{
  // The shared names of the event fields exist before the first collection makes a record.
  EventFieldNames();
  m_hostPool = std::make_shared<CHostPool>();
  m_userPool = std::make_shared<CUserPool>();
  m_classPool = std::make_shared<CClassPool>();
  m_taskPool = std::make_shared<CTaskPool>(m_classPool, m_userPool, m_hostPool, m_cancellation, m_pool, m_log,
                                           std::move(factory));
}

void CCollector::Cancel()
{
  if (const auto cancellation = m_cancellation->get_cancellation())
  {
    cancellation->cancel();
  }
  m_taskPool->CancelAll();
}

void CCollector::Stop(bool sync)
{
  m_cancellation->stop(sync);
  m_taskPool->StopAll(sync);
}

int CCollector::GetState()
{
  KELDA_THROW(CHResultException(E_NOTIMPL));
}
} // namespace collector::ni::impl

namespace collector::win_events
{
// Both arguments are taken by value, as the exported signature has always had them.
std::shared_ptr<collector::ni::ICollector> create_collector(pool threadPool, // NOLINT(performance-unnecessary-value-param)
                                                            std::shared_ptr<ICancellationToken> token) // NOLINT(performance-unnecessary-value-param)
{
  return std::make_shared<collector::ni::impl::CCollector>(std::move(threadPool), token);
}
} // namespace collector::win_events
