#include "KeldaKernel/Observer.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
struct Listener : IKeldaSubscriber
{
  explicit Listener(std::string name) : name(std::move(name)) {}
  std::string name;
  int calls = 0;
};
} // namespace

TEST(Observer, NotifiesInSubscriptionOrderAndDropsOnTrue)
{
  CKeldaObserver<Listener> observer;
  auto a = std::make_shared<Listener>("a");
  auto b = std::make_shared<Listener>("b");
  observer.Subscribe(a);
  observer.Subscribe(b);
  std::string order;
  observer.notify([&](IKeldaSubscriber& s) {
    auto& listener = static_cast<Listener&>(s);
    order += listener.name;
    ++listener.calls;
    return listener.name == "a";
  });
  EXPECT_EQ(order, "ab");
  EXPECT_EQ(observer.subscriber_count(), 1u);
  observer.notify([](IKeldaSubscriber& s) {
    ++static_cast<Listener&>(s).calls;
    return false;
  });
  EXPECT_EQ(a->calls, 1);
  EXPECT_EQ(b->calls, 2);
}

TEST(Observer, SubscriberMayUnsubscribeItselfWhileNotified)
{
  CKeldaObserver<Listener> observer;
  auto a = std::make_shared<Listener>("a");
  auto late = std::make_shared<Listener>("late");
  observer.Subscribe(a);
  observer.notify([&](IKeldaSubscriber&) {
    observer.Unsubscribe(a);
    observer.Subscribe(late);
    return false;
  });
  // The snapshot was taken before the callback changed the list.
  EXPECT_EQ(observer.subscriber_count(), 1u);
  int calls = 0;
  observer.notify([&](IKeldaSubscriber& s) {
    EXPECT_EQ(&s, late.get());
    ++calls;
    return false;
  });
  EXPECT_EQ(calls, 1);
}

TEST(Observer, NullSubscriberIsIgnored)
{
  CKeldaBaseObserver observer;
  observer.subscribe(nullptr);
  EXPECT_EQ(observer.subscriber_count(), 0u);
}
