#include "ClassPool.h"
#include "HostPool.h"
#include "UserPool.h"
#include "TestSupport/StartLatch.h"

#include <gtest/gtest.h>

#include <cstring>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
constexpr int kThreads = 4;
constexpr int kPerThread = 250;

struct SGuidLess
{
  bool operator()(const GUID& a, const GUID& b) const { return std::memcmp(&a, &b, sizeof(GUID)) < 0; }
};

TEST(PoolsThreadingTest, ConcurrentHostCreationMakesDistinctFindableHosts)
{
  CHostPool pool;
  StartLatch start(kThreads);
  std::vector<std::vector<std::shared_ptr<IHost>>> made(kThreads);
  std::vector<std::thread> workers;
  workers.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t)
  {
    workers.emplace_back([&, t] {
      start.ArriveAndWait();
      for (int i = 0; i < kPerThread; ++i)
      {
        made[t].push_back(pool.Create(L"host"));
        pool.CreateDefault(L"default");
      }
    });
  }
  for (auto& worker : workers)
    worker.join();
  std::set<GUID, SGuidLess> ids;
  for (const auto& hosts : made)
  {
    for (const auto& host : hosts)
    {
      ids.insert(host->GetId());
      EXPECT_EQ(pool.Get(host->GetId()), host);
    }
  }
  EXPECT_EQ(ids.size(), static_cast<std::size_t>(kThreads * kPerThread));
  EXPECT_EQ(pool.Size(), static_cast<std::size_t>(kThreads * kPerThread + 1));
  ASSERT_NE(pool.Get(GUID_NULL), nullptr);
}

TEST(PoolsThreadingTest, GetAllSnapshotsWhileUsersAreAdded)
{
  CUserPool pool;
  StartLatch start(kThreads + 1);
  std::vector<std::thread> writers;
  writers.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t)
  {
    writers.emplace_back([&] {
      start.ArriveAndWait();
      for (int i = 0; i < kPerThread; ++i)
        pool.Create(L"CORP\\alice", L"secret");
    });
  }
  start.ArriveAndWait();
  std::size_t lastSize = 0;
  bool shrank = false;
  for (int i = 0; i < 100; ++i)
  {
    const auto all = pool.GetAll();
    // Users are only added, so each snapshot is at least as large as the one before.
    if (all.size() < lastSize)
      shrank = true;
    lastSize = all.size();
    for (const auto& user : all)
      ASSERT_EQ(user->GetDomain(), L"CORP");
  }
  for (auto& writer : writers)
    writer.join();
  EXPECT_FALSE(shrank);
  EXPECT_EQ(pool.GetAll().size(), static_cast<std::size_t>(kThreads * kPerThread));
}

TEST(PoolsThreadingTest, TasksAddAndRemoveClassesConcurrently)
{
  CClassPool pool;
  StartLatch start(kThreads);
  std::vector<std::thread> workers;
  workers.reserve(kThreads);
  std::atomic<int> lost{0};
  for (int t = 0; t < kThreads; ++t)
  {
    workers.emplace_back([&, t] {
      start.ArriveAndWait();
      for (int i = 0; i < kPerThread; ++i)
      {
        const GUID id{static_cast<std::uint32_t>(t * kPerThread + i + 1), 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
        pool.Create(id, L"WindowsEvents");
        if (pool.Get(id) == nullptr)
          ++lost;
        pool.Remove(id);
        if (pool.Get(id) != nullptr)
          ++lost;
      }
    });
  }
  for (auto& worker : workers)
    worker.join();
  EXPECT_EQ(lost.load(), 0);
  // Only the default class is left.
  EXPECT_EQ(pool.Size(), 1u);
  EXPECT_NE(pool.Get(GUID_NULL), nullptr);
}
} // namespace
