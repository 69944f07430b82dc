// Eight threads work one collector at random for NATC_STRESS_SECONDS (default 20): deploying and
// removing tasks on 200 hosts, creating, running, stopping and removing collections, switching
// users and stopping the collector. Afterwards every collection must be in a final state, and
// once everything is released no object of the collector may be left alive. Run under TSan in CI.
#include "TaskTestSupport.h"

#include "Collector.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace natc_task_test;
using namespace collector::ni;

namespace
{
int StressSeconds()
{
  if (const char* text = std::getenv("NATC_STRESS_SECONDS"))
  {
    const int seconds = std::atoi(text);
    if (seconds > 0)
    {
      return seconds;
    }
  }
  return 20;
}

// What the threads share: the live tasks and collections they pick from, and everything ever
// made, so that the end can check each of them.
struct SShared
{
  std::mutex lock;
  std::vector<std::shared_ptr<ITask>> tasks;
  std::vector<std::pair<std::shared_ptr<ITask>, std::shared_ptr<ICollection>>> collections;
  std::vector<std::shared_ptr<ITask>> removedTasks;
  std::vector<std::shared_ptr<ICollection>> removedCollections;
  std::vector<std::weak_ptr<ICollection>> everCollections;
  std::vector<std::weak_ptr<ITask>> everTasks;
};

class CStress
{
public:
  CStress(ICollector& collector, std::vector<GUID> hosts, std::vector<GUID> users, SShared& shared)
    : m_collector(collector), m_hosts(std::move(hosts)), m_users(std::move(users)), m_shared(shared)
  {
  }

  std::size_t Work(unsigned seed, std::chrono::steady_clock::time_point until)
  {
    std::mt19937 random(seed);
    std::size_t operations = 0;
    while (std::chrono::steady_clock::now() < until)
    {
      const unsigned choice = random() % 100;
      if (choice < 10)
      {
        Deploy(random);
      }
      else if (choice < 15)
      {
        RemoveTask(random);
      }
      else if (choice < 40)
      {
        CreateAndRun(random);
      }
      else if (choice < 60)
      {
        StopCollection(random);
      }
      else if (choice < 70)
      {
        RunCollection(random);
      }
      else if (choice < 80)
      {
        RemoveCollection(random);
      }
      else if (choice < 95)
      {
        SwitchUser(random);
      }
      else if (choice < 97)
      {
        m_collector.Stop(random() % 2 == 0);
      }
      else
      {
        m_collector.GetTaskPool()->Get(m_hosts[random() % m_hosts.size()]);
      }
      ++operations;
    }
    return operations;
  }

private:
  template <class T>
  static std::size_t Pick(std::mt19937& random, const std::vector<T>& items)
  {
    return random() % items.size();
  }

  void Deploy(std::mt19937& random)
  {
    auto task = m_collector.GetTaskPool()->Deploy(L"stress", m_hosts[random() % m_hosts.size()],
                                                  m_users[random() % m_users.size()]);
    const std::lock_guard lock(m_shared.lock);
    m_shared.tasks.push_back(task);
    m_shared.everTasks.push_back(task);
  }

  std::shared_ptr<ITask> AnyTask(std::mt19937& random)
  {
    const std::lock_guard lock(m_shared.lock);
    return m_shared.tasks.empty() ? nullptr : m_shared.tasks[Pick(random, m_shared.tasks)];
  }

  std::shared_ptr<ICollection> AnyCollection(std::mt19937& random)
  {
    const std::lock_guard lock(m_shared.lock);
    return m_shared.collections.empty() ? nullptr : m_shared.collections[Pick(random, m_shared.collections)].second;
  }

  void RemoveTask(std::mt19937& random)
  {
    std::shared_ptr<ITask> task;
    {
      const std::lock_guard lock(m_shared.lock);
      if (m_shared.tasks.size() < 20)
      {
        return;
      }
      const std::size_t index = Pick(random, m_shared.tasks);
      task = m_shared.tasks[index];
      m_shared.tasks.erase(m_shared.tasks.begin() + static_cast<std::ptrdiff_t>(index));
      std::erase_if(m_shared.collections, [&](const auto& entry) { return entry.first == task; });
      m_shared.removedTasks.push_back(task);
    }
    m_collector.GetTaskPool()->Remove(task->GetId());
    task->Stop(random() % 2 == 0);
  }

  void CreateAndRun(std::mt19937& random)
  {
    auto task = AnyTask(random);
    if (!task)
    {
      return;
    }
    auto collection = task->CreateCollection(random() % 10 == 0 ? L"fake" : L"Fake");
    if (!collection)
    {
      return;
    }
    std::dynamic_pointer_cast<ICollectionInit>(collection)->SetUpdatePeriod(1);
    {
      const std::lock_guard lock(m_shared.lock);
      m_shared.collections.emplace_back(task, collection);
      m_shared.everCollections.push_back(collection);
    }
    collection->Run();
  }

  void StopCollection(std::mt19937& random)
  {
    if (auto collection = AnyCollection(random))
    {
      collection->Stop(random() % 2 == 0);
    }
  }

  void RunCollection(std::mt19937& random)
  {
    if (auto collection = AnyCollection(random))
    {
      collection->Run();
    }
  }

  void RemoveCollection(std::mt19937& random)
  {
    std::shared_ptr<ITask> task;
    std::shared_ptr<ICollection> collection;
    {
      const std::lock_guard lock(m_shared.lock);
      if (m_shared.collections.size() < 50)
      {
        return;
      }
      const std::size_t index = Pick(random, m_shared.collections);
      std::tie(task, collection) = m_shared.collections[index];
      m_shared.collections.erase(m_shared.collections.begin() + static_cast<std::ptrdiff_t>(index));
      m_shared.removedCollections.push_back(collection);
    }
    collection->Stop(true);
    task->RemoveCollection(collection->GetId());
  }

  void SwitchUser(std::mt19937& random)
  {
    if (auto task = AnyTask(random))
    {
      task->SwitchUser(m_users[random() % m_users.size()]);
    }
  }

  ICollector& m_collector;
  std::vector<GUID> m_hosts;
  std::vector<GUID> m_users;
  SShared& m_shared;
};

TEST(CollectorStressTest, EightThreadsOnTwoHundredHostsEndEveryCollectionInAFinalState)
{
  SShared shared;
  std::size_t operations = 0;
  {
    auto workers = std::make_unique<pool>(4);
    auto token = create_cancellation();
    auto collector = std::make_shared<impl::CCollector>(*workers, token, MakeFakeFactory());
    std::vector<GUID> hosts;
    hosts.reserve(200);
    for (int h = 0; h < 200; ++h)
    {
      hosts.push_back(collector->GetHostPool()->Create(L"host" + std::to_wstring(h))->GetId());
    }
    std::vector<GUID> users;
    users.reserve(5);
    for (int u = 0; u < 5; ++u)
    {
      users.push_back(collector->GetUserPool()->Create(L"CORP\\user" + std::to_wstring(u), L"pw")->GetId());
    }
    CStress stress(*collector, hosts, users, shared);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(StressSeconds());
    std::vector<std::thread> threads;
    std::vector<std::size_t> counts(8);
    for (unsigned t = 0; t < 8; ++t)
    {
      threads.emplace_back([&, t] { counts[t] = stress.Work(1000 + t, until); });
    }
    for (auto& thread : threads)
    {
      thread.join();
    }
    for (const std::size_t count : counts)
    {
      operations += count;
    }

    collector->Stop(true);
    // Removed tasks and collections are out of the collector's reach: their holder stops them.
    for (const auto& task : shared.removedTasks)
    {
      task->Stop(true);
    }
    for (const auto& collection : shared.removedCollections)
    {
      collection->Stop(true);
    }
    std::size_t checked = 0;
    for (const auto& weak : shared.everCollections)
    {
      if (const auto collection = weak.lock())
      {
        EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
        ++checked;
      }
    }
    EXPECT_EQ(checked, shared.everCollections.size());
    EXPECT_GT(shared.everCollections.size(), 100u);

    // Release everything, then the pool: nothing of the collector may stay alive.
    shared.tasks.clear();
    shared.collections.clear();
    shared.removedTasks.clear();
    shared.removedCollections.clear();
    collector.reset();
    workers.reset();
  }
  for (const auto& weak : shared.everCollections)
  {
    EXPECT_TRUE(weak.expired());
  }
  for (const auto& weak : shared.everTasks)
  {
    EXPECT_TRUE(weak.expired());
  }
  EXPECT_GT(operations, 1000u);
}
} // namespace
