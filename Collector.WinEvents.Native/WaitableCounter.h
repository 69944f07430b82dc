// A counter that threads wait on until it moves past a value they saw: what the collection's
// Stop(true) and overlapping updates wait for. It stands in for std::atomic<>::wait/notify_all,
// which MinGW-w64's libstdc++ (GCC 12, no futex) implements by checking the value outside the
// mutex that a notification never takes (bits/atomic_wait.h, __waiter_pool::_M_do_wait), so that
// a notification between the check and the sleep is lost and the waiter sleeps for good.
//   counter.Increment();                        // the event happened
//   const auto seen = counter.Load(); ... counter.WaitWhileEquals(seen);
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace collector::ni::impl
{
class CWaitableCounter
{
public:
  std::uint64_t Load() const noexcept { return m_value.load(); }

  void Increment()
  {
    {
      const std::lock_guard lock(m_mutex);
      m_value.fetch_add(1);
    }
    m_changed.notify_all();
  }

  // Returns once the value differs from `seen`.
  void WaitWhileEquals(std::uint64_t seen) const
  {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_value.load() != seen; });
  }

private:
  std::atomic<std::uint64_t> m_value{0};
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
};
} // namespace collector::ni::impl
