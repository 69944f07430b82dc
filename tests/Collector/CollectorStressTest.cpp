// Eight threads work one collector at random for NATC_STRESS_SECONDS (default 3; 30 for the long
// run): deploying and removing tasks on 200 hosts, creating (up to 1,000), running, stopping,
// running again and removing collections of the library's three types and a counting test type
// with periods of 0 and 1 s, switching users, and stopping or cancelling the collector, while
// subscribers call back into the task pool and throw. Every Stop(true) must return within 2 s,
// no run may have two update chains, every collection must end in a final state, and once
// everything is released no object of the collector may be left alive. Run under TSan in CI.
#include "TaskTestSupport.h"

#include "Collector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <cstdio>
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
  return 3;
}

using Clock = std::chrono::steady_clock;

// Notes every pair of one run's updates that came closer than a chain with a period of 1 s
// allows, and any two update bodies that overlapped.
//
// An update knows its run by the run's cancellation token, which the collection hands to every
// update of that run. Counting Run calls instead would be racy: a Run that is ignored while the
// collection stops can count before the last update of the stopping run, so that update and the
// first of the next run looked like two updates of one run.
//
// One chain starts its updates at least half a period apart: an update that ends before half a
// second has passed waits a whole second, and one that ends later starts the next at once. The
// collection takes each update's start a moment before it enters updateImpl, where this test
// looks at the clock; a thread preempted in that moment (two cores, twelve busy threads, TSan)
// makes the gap look shorter than the one the collection measured. The bound therefore allows
// for such a delay, and two chains still show, since their updates fall at random offsets.
constexpr auto closestUpdatesOfOneChain = std::chrono::milliseconds(500) - std::chrono::milliseconds(150);

class CCountedCollection : public CCollectionBase
{
public:
  explicit CCountedCollection(const SCollectionParts& parts)
    : CCollectionBase(parts.log, parts.threadPool, parts.token, parts.host, parts.user, parts.cls)
  {
  }
  void SetSlowChain(bool slow)
  {
    const std::lock_guard lock(m_lock);
    m_slowChain = slow;
  }
  int Violations() const
  {
    const std::lock_guard lock(m_lock);
    return m_violations;
  }

protected:
  void updateImpl() override
  {
    const bool overlapping = m_active.fetch_add(1) != 0;
    // Held, so that a later run's token cannot take the address of an earlier one.
    std::shared_ptr<ICancellationToken> run = cancellationToken();
    {
      const std::lock_guard lock(m_lock);
      const auto now = Clock::now();
      if (overlapping || (m_slowChain && run == m_lastRun && now - m_last < closestUpdatesOfOneChain))
      {
        std::fprintf(stderr, "stress: updates of one run %.1f ms apart%s\n",
                     std::chrono::duration<double, std::milli>(now - m_last).count(),
                     overlapping ? ", overlapping" : "");
        ++m_violations;
      }
      m_lastRun = std::move(run);
      m_last = now;
    }
    m_active.fetch_sub(1);
  }

private:
  mutable std::mutex m_lock;
  std::atomic<int> m_active{0};
  bool m_slowChain = false;
  std::shared_ptr<ICancellationToken> m_lastRun;
  Clock::time_point m_last{};
  int m_violations = 0;
};

// Calls back into the task pool from its notifications, and throws from some of them.
class CMeddlingSubscriber : public ICollectionTypes::ISubscriber
{
public:
  CMeddlingSubscriber(std::weak_ptr<ITaskPool> tasks, std::function<GUID(unsigned)> anyTask)
    : m_tasks(std::move(tasks)), m_anyTask(std::move(anyTask))
  {
  }
  void OnRecords(const GUID&, ICollectionTypes::Records) override { throw std::runtime_error("records refused"); }
  void OnStateChanged(const GUID& id, const ICollectionTypes::IState& state) override
  {
    const unsigned char pick = reinterpret_cast<const unsigned char*>(&id)[0];
    if (const auto tasks = m_tasks.lock())
    {
      const GUID task = m_anyTask(pick);
      if (pick % 16 == 0)
      {
        tasks->Remove(task);
      }
      else
      {
        tasks->Get(task);
      }
    }
    if (state.GetState() == ICollectionTypes::Error || pick % 3 == 0)
    {
      throw std::runtime_error("state refused");
    }
  }

private:
  std::weak_ptr<ITaskPool> m_tasks;
  std::function<GUID(unsigned)> m_anyTask;
};

// The library's types and the counting one.
std::shared_ptr<CCollectionFactory> MakeStressFactory()
{
  auto factory = CCollectionFactory::BuiltIn();
  factory->Add(L"Counted", [](const SCollectionParts& parts) {
    return SMadeCollection{std::make_shared<CCountedCollection>(parts), {}};
  });
  return factory;
}

// The longest Stop(true), over every thread.
struct SStopTimes
{
  std::mutex lock;
  Clock::duration longest{};
  std::size_t count = 0;
  void Add(Clock::duration taken)
  {
    const std::lock_guard guard(lock);
    longest = std::max(longest, taken);
    ++count;
  }
};

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
  std::vector<std::shared_ptr<CCountedCollection>> counted;
  SStopTimes stops;
  std::shared_ptr<CMeddlingSubscriber> meddler;
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
        if (random() % 50 == 0)
        {
          m_collector.Cancel();
        }
        else
        {
          StopCollector(random() % 2 == 0);
        }
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
  void StopCollector(bool sync)
  {
    const auto start = Clock::now();
    m_collector.Stop(sync);
    if (sync)
    {
      m_shared.stops.Add(Clock::now() - start);
    }
  }

  void StopOne(ICollection& collection, bool sync)
  {
    const auto start = Clock::now();
    collection.Stop(sync);
    if (sync)
    {
      m_shared.stops.Add(Clock::now() - start);
    }
  }

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
    {
      const std::lock_guard lock(m_shared.lock);
      if (m_shared.everCollections.size() >= 1000)
      {
        return;
      }
    }
    static constexpr const wchar_t* types[] = {L"Counted", L"WindowsEvents", L"MiProp", L"MiPerf", L"counted"};
    auto collection = task->CreateCollection(types[random() % 5]);
    if (!collection)
    {
      return;
    }
    const int period = static_cast<int>(random() % 2);
    std::dynamic_pointer_cast<ICollectionInit>(collection)->SetUpdatePeriod(period);
    if (random() % 4 == 0)
    {
      collection->Subscribe(m_shared.meddler);
    }
    {
      const std::lock_guard lock(m_shared.lock);
      m_shared.collections.emplace_back(task, collection);
      m_shared.everCollections.push_back(collection);
      if (auto counted = std::dynamic_pointer_cast<CCountedCollection>(collection))
      {
        counted->SetSlowChain(period == 1);
        m_shared.counted.push_back(std::move(counted));
      }
    }
    collection->Run();
  }

  void StopCollection(std::mt19937& random)
  {
    if (auto collection = AnyCollection(random))
    {
      StopOne(*collection, random() % 2 == 0);
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
    StopOne(*collection, true);
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
    auto collector = std::make_shared<impl::CCollector>(*workers, token, MakeStressFactory());
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
    // The task is picked under the shared lock and used after it is left, so that no lock of the
    // test is held while the meddler waits for the task pool's.
    shared.meddler = std::make_shared<CMeddlingSubscriber>(collector->GetTaskPool(), [&shared](unsigned pick) {
      const std::lock_guard lock(shared.lock);
      return shared.tasks.empty() ? GUID{} : shared.tasks[pick % shared.tasks.size()]->GetId();
    });
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

    const auto finalStop = Clock::now();
    collector->Stop(true);
    const double finalSeconds = std::chrono::duration<double>(Clock::now() - finalStop).count();
    shared.stops.Add(Clock::now() - finalStop);
    // Tasks that a subscriber removed are out of the collector's reach too.
    for (const auto& task : shared.tasks)
    {
      task->Stop(true);
    }
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
    int violations = 0;
    for (const auto& counted : shared.counted)
    {
      violations += counted->Violations();
    }
    EXPECT_EQ(violations, 0) << "updates of one run closer than its period, or overlapping";
    const double longest = std::chrono::duration<double>(shared.stops.longest).count();
    EXPECT_LT(longest, 2.0);
    std::printf("stress: %zu collections, %zu Stop(true) calls, longest %.3f s, final collector stop %.3f s\n",
                shared.everCollections.size(), shared.stops.count, longest, finalSeconds);
    shared.counted.clear();
    shared.meddler.reset();

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
