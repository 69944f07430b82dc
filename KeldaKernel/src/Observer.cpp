// Subscriber list. The list is replaced, never changed in place, so a notification walks the
// list it took at its start while subscribers (un)subscribe from inside a callback.
#include "KeldaKernel/Observer.h"

#include <algorithm>

void CKeldaBaseObserver::subscribe(std::shared_ptr<IKeldaSubscriber> subscriber)
{
  if (!subscriber)
    return;
  void* const typed = typedOf(*subscriber);
  const std::lock_guard guard(m_lock);
  auto list = std::make_shared<List>(*m_entries);
  list->push_back(SEntry{std::move(subscriber), typed});
  m_entries = std::move(list);
}

void CKeldaBaseObserver::unsubscribe(const std::shared_ptr<IKeldaSubscriber>& subscriber)
{
  const std::lock_guard guard(m_lock);
  auto list = std::make_shared<List>(*m_entries);
  std::erase_if(*list, [&](const SEntry& entry) { return entry.subscriber.get() == subscriber.get(); });
  m_entries = std::move(list);
}

std::size_t CKeldaBaseObserver::subscriber_count() const
{
  const std::lock_guard guard(m_lock);
  return m_entries->size();
}

std::shared_ptr<const CKeldaBaseObserver::List> CKeldaBaseObserver::entries() const
{
  const std::lock_guard guard(m_lock);
  return m_entries;
}

void* CKeldaBaseObserver::typedOf(IKeldaSubscriber& /*subscriber*/) const
{
  return nullptr;
}

void CKeldaBaseObserver::drop(const std::vector<const IKeldaSubscriber*>& dropped) const
{
  const std::lock_guard guard(m_lock);
  auto list = std::make_shared<List>(*m_entries);
  std::erase_if(*list, [&](const SEntry& entry) {
    return std::find(dropped.begin(), dropped.end(), entry.subscriber.get()) != dropped.end();
  });
  m_entries = std::move(list);
}
