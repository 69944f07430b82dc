// Lets a set of threads start together: each calls ArriveAndWait, and all go on once the last has
// arrived. Used instead of std::latch, whose wait in MinGW-w64 GCC 12 rests on std::atomic::wait,
// which can miss its wake-up and hang the test under Wine.
//   StartLatch start(threads);  ... in each thread: start.ArriveAndWait(); ...
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

class StartLatch
{
public:
  explicit StartLatch(std::ptrdiff_t expected) : m_left(expected) {}

  void ArriveAndWait()
  {
    std::unique_lock lock(m_lock);
    if (--m_left <= 0)
    {
      m_arrived.notify_all();
      return;
    }
    m_arrived.wait(lock, [this] { return m_left <= 0; });
  }

private:
  std::mutex m_lock;
  std::condition_variable m_arrived;
  std::ptrdiff_t m_left;
};
