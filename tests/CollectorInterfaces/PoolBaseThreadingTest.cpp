#include "Collector/Interfaces/Impl/PoolBase.h"
#include "TestSupport/StartLatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

using namespace collector::ni::impl;

namespace
{
struct SItem
{
  GUID id;
  GUID GetId() const { return id; }
};

GUID Numbered(std::uint32_t number)
{
  return GUID{number, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
}

TEST(PoolBaseThreadingTest, ConcurrentAddsGetsAndErasesKeepTheMapConsistent)
{
  CPoolBase<SItem> pool;
  constexpr int threads = 4;
  constexpr std::uint32_t perThread = 500;
  StartLatch start(threads);
  std::vector<std::thread> workers;
  workers.reserve(threads);
  std::atomic<int> misses{0};
  for (int t = 0; t < threads; ++t)
  {
    workers.emplace_back([&, t] {
      start.ArriveAndWait();
      for (std::uint32_t i = 0; i < perThread; ++i)
      {
        const GUID id = Numbered(static_cast<std::uint32_t>(t) * perThread + i + 1);
        pool.Add(std::make_shared<SItem>(SItem{id}));
        if (pool.Get(id) == nullptr)
          ++misses;
        // Every other item is removed again by its own thread.
        if (i % 2 == 1)
          pool.Erase(id);
        (void)pool.Snapshot();
      }
    });
  }
  for (auto& worker : workers)
    worker.join();
  EXPECT_EQ(misses.load(), 0);
  EXPECT_EQ(pool.Size(), threads * perThread / 2);
}

// Shows whether another thread could enter the pool's lock at a given moment.
class CProbedPool : public CPoolBase<SItem>
{
public:
  bool OtherThreadCanEnter()
  {
    bool entered = false;
    std::thread other([&] {
      entered = Lock().try_lock();
      if (entered)
        Lock().unlock();
    });
    other.join();
    return entered;
  }
};

TEST(PoolBaseThreadingTest, WalkHoldsOffWritersUntilItEnds)
{
  CProbedPool pool;
  pool.Add(std::make_shared<SItem>(SItem{Numbered(1)}));
  pool.Add(std::make_shared<SItem>(SItem{Numbered(2)}));
  std::vector<bool> enterable;
  pool.ForEach([&](const std::shared_ptr<SItem>&) { enterable.push_back(pool.OtherThreadCanEnter()); });
  EXPECT_EQ(enterable, (std::vector<bool>{false, false}));
  EXPECT_TRUE(pool.OtherThreadCanEnter());
  // A writer on another thread goes on once the walk has ended.
  std::thread writer([&] { pool.Add(std::make_shared<SItem>(SItem{Numbered(3)})); });
  writer.join();
  EXPECT_EQ(pool.Size(), 3u);
}

TEST(CriticalSectionThreadingTest, ExcludesOtherThreads)
{
  CCriticalSection section;
  std::unique_lock guard(section);
  bool acquiredElsewhere = true;
  std::thread other([&] {
    acquiredElsewhere = section.try_lock();
    if (acquiredElsewhere)
      section.unlock();
  });
  other.join();
  EXPECT_FALSE(acquiredElsewhere);
  guard.unlock();
  std::thread after([&] {
    acquiredElsewhere = section.try_lock();
    if (acquiredElsewhere)
      section.unlock();
  });
  after.join();
  EXPECT_TRUE(acquiredElsewhere);
}
} // namespace
