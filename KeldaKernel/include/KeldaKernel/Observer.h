// Subscriber lists. CKeldaBaseObserver keeps subscribers (strong references) and calls a
// callable on each in turn; the callable returns true to drop that subscriber. Notification
// works on the list as it was when it began, so subscribers may (un)subscribe from inside a
// callback. Thread-safe. CKeldaObserver<T> adds typed subscription for one subscriber
// interface T and notifyEach, which reaches every T without a cast per call:
//   observer.Subscribe(subscriber);
//   observer.notifyEach([&](T& subscriber) { subscriber.OnSomething(value); });
#pragma once

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
  CKeldaBaseObserver() = default;
  CKeldaBaseObserver(const CKeldaBaseObserver&) = delete;
  CKeldaBaseObserver& operator=(const CKeldaBaseObserver&) = delete;
  virtual ~CKeldaBaseObserver() = default;

  void subscribe(std::shared_ptr<IKeldaSubscriber> subscriber);
  void unsubscribe(const std::shared_ptr<IKeldaSubscriber>& subscriber);
  std::size_t subscriber_count() const;

  // Calls `callback` on every subscriber in subscription order; true drops the subscriber.
  template <class Callback>
  void notify(Callback&& callback) const
  {
    const std::shared_ptr<const List> list = entries();
    std::vector<const IKeldaSubscriber*> dropped;
    for (const SEntry& entry : *list)
    {
      if (callback(*entry.subscriber))
        dropped.push_back(entry.subscriber.get());
    }
    if (!dropped.empty())
      drop(dropped);
  }

protected:
  struct SEntry
  {
    std::shared_ptr<IKeldaSubscriber> subscriber;
    // The subscriber as the typed observer's interface, found once at subscription; null when
    // it does not implement it.
    void* typed = nullptr;
  };
  using List = std::vector<SEntry>;

  // The current list; a change replaces it, so a notification holds it without a copy.
  std::shared_ptr<const List> entries() const;
  // The typed form of a new subscriber (see SEntry::typed).
  virtual void* typedOf(IKeldaSubscriber& subscriber) const;

private:
  void drop(const std::vector<const IKeldaSubscriber*>& dropped) const;

  mutable std::mutex m_lock;
  mutable std::shared_ptr<const List> m_entries = std::make_shared<const List>();
};

template <class T>
class CKeldaObserver : public CKeldaBaseObserver
{
public:
  void Subscribe(std::shared_ptr<T> subscriber) { subscribe(std::move(subscriber)); }
  void Unsubscribe(const std::shared_ptr<T>& subscriber) { unsubscribe(subscriber); }

  // Calls visit(T&) on every subscriber that implements T, in subscription order.
  template <class Visit>
  void notifyEach(Visit&& visit) const
  {
    const std::shared_ptr<const List> list = entries();
    for (const SEntry& entry : *list)
    {
      if (entry.typed != nullptr)
        visit(*static_cast<T*>(entry.typed));
    }
  }

protected:
  void* typedOf(IKeldaSubscriber& subscriber) const override { return dynamic_cast<T*>(&subscriber); }
};
