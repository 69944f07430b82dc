// A shared_ptr that some threads read while others replace it: the collection's user, its run
// and update tokens, the MI session. Each call copies or swaps the pointer under a small lock;
// what a reader got stays valid for it after a replacement.
//   CSharedSlot<IUser> user{first};  user.store(second);  auto now = user.load();
#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace collector::ni::impl
{
// Not std::atomic<std::shared_ptr>: GCC 12's releases its lock with relaxed order after a load,
// so a later store is not ordered after that read (ThreadSanitizer reports the race).
template <class T>
class CSharedSlot
{
public:
  CSharedSlot() = default;
  explicit CSharedSlot(std::shared_ptr<T> value) : m_value(std::move(value)) {}

  std::shared_ptr<T> load() const
  {
    const std::lock_guard guard(m_lock);
    return m_value;
  }

  // The old value is released by the caller's copy, after the lock is left, so that its
  // destructor never runs under the lock.
  std::shared_ptr<T> exchange(std::shared_ptr<T> value)
  {
    const std::lock_guard guard(m_lock);
    return std::exchange(m_value, std::move(value));
  }

  void store(std::shared_ptr<T> value) { exchange(std::move(value)); }

private:
  mutable std::mutex m_lock;
  std::shared_ptr<T> m_value;
};
} // namespace collector::ni::impl
