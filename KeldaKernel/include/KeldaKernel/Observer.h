// Subscriber lists. CKeldaBaseObserver keeps subscribers (strong references) and calls a
// callable on each in turn; the callable returns true to drop that subscriber. Notification
// works on a snapshot, so subscribers may (un)subscribe from inside a callback. Thread-safe.
// CKeldaObserver<T> adds typed subscription for one subscriber interface T.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class IKeldaSubscriber
{
public:
  virtual ~IKeldaSubscriber() = default;
};

class CKeldaBaseObserver
{
public:
  virtual ~CKeldaBaseObserver() = default;

  void subscribe(std::shared_ptr<IKeldaSubscriber> subscriber);
  void unsubscribe(const std::shared_ptr<IKeldaSubscriber>& subscriber);
  std::size_t subscriber_count() const;
  // Calls `callback` on every subscriber in subscription order; true drops the subscriber.
  void notify(const std::function<bool(IKeldaSubscriber&)>& callback) const;

private:
  mutable std::mutex m_lock;
  mutable std::vector<std::shared_ptr<IKeldaSubscriber>> m_subscribers;
};

template <class T>
class CKeldaObserver : public CKeldaBaseObserver
{
public:
  void Subscribe(std::shared_ptr<T> subscriber) { subscribe(std::move(subscriber)); }
  void Unsubscribe(const std::shared_ptr<T>& subscriber) { unsubscribe(subscriber); }
};
