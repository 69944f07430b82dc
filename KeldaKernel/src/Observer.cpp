// Subscriber list. Callbacks run on a copy of the list and outside the lock, so a subscriber
// may subscribe or unsubscribe (itself or others) while being notified.
#include "KeldaKernel/Observer.h"

#include <algorithm>

void CKeldaBaseObserver::subscribe(std::shared_ptr<IKeldaSubscriber> subscriber)
{
  if (!subscriber)
    return;
  const std::lock_guard guard(m_lock);
  m_subscribers.push_back(std::move(subscriber));
}

void CKeldaBaseObserver::unsubscribe(const std::shared_ptr<IKeldaSubscriber>& subscriber)
{
  const std::lock_guard guard(m_lock);
  std::erase_if(m_subscribers, [&](const auto& entry) { return entry.get() == subscriber.get(); });
}

std::size_t CKeldaBaseObserver::subscriber_count() const
{
  const std::lock_guard guard(m_lock);
  return m_subscribers.size();
}

void CKeldaBaseObserver::notify(const std::function<bool(IKeldaSubscriber&)>& callback) const
{
  std::vector<std::shared_ptr<IKeldaSubscriber>> snapshot;
  {
    const std::lock_guard guard(m_lock);
    snapshot = m_subscribers;
  }
  std::vector<IKeldaSubscriber*> dropped;
  for (const auto& subscriber : snapshot)
    if (callback(*subscriber))
      dropped.push_back(subscriber.get());
  if (dropped.empty())
    return;
  const std::lock_guard guard(m_lock);
  std::erase_if(m_subscribers, [&](const auto& entry) {
    return std::find(dropped.begin(), dropped.end(), entry.get()) != dropped.end();
  });
}
