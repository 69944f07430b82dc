// CPerfTargetCollection shared by several reporters on different threads (the collections of
// one task): every target gets exactly one number and numbers are never given twice.
#include "PerfTargetCollectoin.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

using collector::ni::impl::CPerfTargetCollection;

namespace
{
TEST(PerfTargetsThreadingTest, ConcurrentReportsGiveOneNumberPerTarget)
{
  CPerfTargetCollection targets;
  constexpr int perThread = 500;
  constexpr int threadCount = 3;
  std::vector<std::vector<std::uint64_t>> numbers(threadCount);
  std::vector<std::thread> threads;
  threads.reserve(threadCount);
  for (int t = 0; t < threadCount; ++t)
  {
    threads.emplace_back([&, t] {
      for (int i = 0; i < perThread; ++i)
      {
        // Threads overlap on half of the names, so the same target is asked for concurrently.
        const std::wstring name = std::to_wstring(i % 2 == 0 ? i : i * 10 + t);
        numbers[t].push_back(targets.GetOrAddTarget({name, L"Counter", L"Class"}, tstring(L"x")));
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  const auto changes = targets.EndUpdate();
  std::set<std::uint64_t> given;
  for (const auto& change : changes)
  {
    EXPECT_EQ(change.operation, CPerfTargetCollection::TargetAdded);
    EXPECT_TRUE(given.insert(change.data.number).second);
  }
  EXPECT_EQ(given.size(), targets.Targets().size());
  EXPECT_EQ(targets.NumbersGiven(), given.size());
  // The shared names got the same number on every thread.
  for (int i = 0; i < perThread; i += 2)
  {
    EXPECT_EQ(numbers[0][i], numbers[1][i]);
    EXPECT_EQ(numbers[1][i], numbers[2][i]);
  }
}
} // namespace
