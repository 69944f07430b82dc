// The collector as a caller sees it: the factory, the four pools, Cancel, Stop and GetState.
// Collections come from a fake type table where their behaviour matters (CCollector takes one);
// everything else goes through collector::win_events::create_collector.
#include "TaskTestSupport.h"

#include "Collector.h"

#include "Collector/WinEvents/CreateCollector.h"
#include "KeldaKernel/Exceptions.h"

#include <gtest/gtest.h>

using namespace natc_task_test;
using namespace collector::ni;

namespace
{
class CollectorTest : public ::testing::Test
{
protected:
  // The workers may still be ending an update that the test no longer waits for: joined here, so
  // that none of them outlives the test and logs while the process exits.
  ~CollectorTest() override { m_workers.shutdown(); }

  pool m_workers{2};
  std::shared_ptr<ICancellation> m_token = create_cancellation();
};

TEST_F(CollectorTest, PoolGettersReturnTheSamePoolEachTime)
{
  auto collector = collector::win_events::create_collector(m_workers, m_token);
  ASSERT_NE(collector, nullptr);
  EXPECT_EQ(collector->GetHostPool(), collector->GetHostPool());
  EXPECT_EQ(collector->GetUserPool(), collector->GetUserPool());
  EXPECT_EQ(collector->GetTaskPool(), collector->GetTaskPool());
  EXPECT_EQ(collector->GetClassPool(), collector->GetClassPool());
  EXPECT_NE(collector->GetHostPool(), nullptr);
  EXPECT_NE(collector->GetUserPool(), nullptr);
  EXPECT_NE(collector->GetTaskPool(), nullptr);
  EXPECT_NE(collector->GetClassPool(), nullptr);
  // The class pool starts with its default class.
  EXPECT_NE(collector->GetClassPool()->Get(GUID_NULL), nullptr);
}

TEST_F(CollectorTest, GetStateThrowsNotImplementedEveryTime)
{
  auto collector = collector::win_events::create_collector(m_workers, m_token);
  for (int attempt = 0; attempt < 3; ++attempt)
  {
    try
    {
      collector->GetState();
      FAIL() << "GetState returned";
    }
    catch (const CHResultException& error)
    {
      EXPECT_EQ(static_cast<std::uint32_t>(error.hresult()), 0x80004001u);
      EXPECT_EQ(get_throw_file(error).find("Collector.cpp") != std::string::npos, true);
      EXPECT_NE(get_throw_function(error).find("GetState"), std::string::npos);
    }
  }
  // Also after some use.
  collector->Stop(true);
  EXPECT_THROW(collector->GetState(), CHResultException);
}

TEST_F(CollectorTest, CancelWithoutTasksOnlyCancelsTheToken)
{
  impl::CCollector collector(m_workers, m_token, MakeFakeFactory());
  collector.Cancel();
  EXPECT_FALSE(m_token->is_cancelled());
  // The collector's token is cancelled: a collection deployed afterwards stops at its first
  // update, before its body runs.
  auto host = collector.GetHostPool()->Create(L"server01");
  auto user = collector.GetUserPool()->CreateDefault(L"", L"");
  auto task = collector.GetTaskPool()->Deploy(L"late", host->GetId(), user->GetId());
  auto recorder = std::make_shared<CStateRecorder>();
  auto collection = std::dynamic_pointer_cast<CFakeCollection>(task->CreateCollection(L"Fake"));
  collection->Subscribe(recorder);
  collection->Run();
  ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Stopped));
  EXPECT_EQ(collection->Updates(), 0);
  EXPECT_EQ(task->GetState(), 1);
}

TEST_F(CollectorTest, CancelledParentTokenIsSeenByTheCollector)
{
  impl::CCollector collector(m_workers, m_token, MakeFakeFactory());
  m_token->cancel();
  auto host = collector.GetHostPool()->Create(L"server01");
  auto user = collector.GetUserPool()->Create(L"alice", L"");
  auto task = collector.GetTaskPool()->Deploy(L"t", host->GetId(), user->GetId());
  auto recorder = std::make_shared<CStateRecorder>();
  auto collection = std::dynamic_pointer_cast<CFakeCollection>(task->CreateCollection(L"Fake"));
  collection->Subscribe(recorder);
  collection->Run();
  ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Stopped));
  EXPECT_EQ(collection->Updates(), 0);
}

TEST_F(CollectorTest, StopTrueEndsEveryCollectionOfEveryTaskInStopped)
{
  impl::CCollector collector(m_workers, m_token, MakeFakeFactory());
  auto user = collector.GetUserPool()->CreateDefault(L"", L"");
  auto recorder = std::make_shared<CStateRecorder>();
  std::vector<std::shared_ptr<ICollection>> collections;
  std::vector<std::shared_ptr<ITask>> tasks;
  for (int h = 0; h < 3; ++h)
  {
    auto host = collector.GetHostPool()->Create(L"server" + std::to_wstring(h));
    auto task = collector.GetTaskPool()->Deploy(L"t", host->GetId(), user->GetId());
    tasks.push_back(task);
    for (int c = 0; c < 3; ++c)
    {
      auto collection = task->CreateCollection(L"Fake");
      collection->Subscribe(recorder);
      collection->Run();
      collections.push_back(collection);
    }
  }
  // One collection is never run: it stays Stopped.
  collections.push_back(tasks.front()->CreateCollection(L"Fake"));
  collector.Stop(true);
  for (const auto& collection : collections)
  {
    EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
  }
  for (const auto& task : tasks)
  {
    EXPECT_EQ(task->GetState(), 6);
  }
}

TEST_F(CollectorTest, CancelEndsEveryRunningCollectionInStopped)
{
  impl::CCollector collector(m_workers, m_token, MakeFakeFactory());
  auto user = collector.GetUserPool()->CreateDefault(L"", L"");
  auto recorder = std::make_shared<CStateRecorder>();
  std::vector<std::shared_ptr<ICollection>> collections;
  for (int h = 0; h < 3; ++h)
  {
    auto host = collector.GetHostPool()->Create(L"server" + std::to_wstring(h));
    auto task = collector.GetTaskPool()->Deploy(L"t", host->GetId(), user->GetId());
    for (int c = 0; c < 2; ++c)
    {
      auto collection = task->CreateCollection(L"Fake");
      collection->Subscribe(recorder);
      collection->Run();
      ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Running));
      collections.push_back(collection);
    }
  }
  collector.Cancel();
  EXPECT_FALSE(m_token->is_cancelled());
  for (const auto& collection : collections)
  {
    EXPECT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Stopped));
  }
}

// Removes every listed task from the task pool as soon as a collection reports Stopping.
class CTaskRemover : public CStateRecorder
{
public:
  CTaskRemover(std::shared_ptr<ITaskPool> tasks, std::vector<GUID> ids) : m_tasks(std::move(tasks)), m_ids(std::move(ids))
  {
  }
  void OnStateChanged(const GUID& id, const ICollectionTypes::IState& state) override
  {
    if (state.GetState() == ICollectionTypes::Stopping)
    {
      for (const GUID& task : m_ids)
      {
        m_tasks->Remove(task);
      }
    }
    CStateRecorder::OnStateChanged(id, state);
  }

private:
  std::shared_ptr<ITaskPool> m_tasks;
  std::vector<GUID> m_ids;
};

TEST_F(CollectorTest, StopReachesEveryTaskWhenASubscriberRemovesTasksDuringTheWalk)
{
  impl::CCollector collector(m_workers, m_token, MakeFakeFactory());
  auto user = collector.GetUserPool()->CreateDefault(L"", L"");
  std::vector<std::shared_ptr<ITask>> tasks;
  std::vector<GUID> ids;
  for (int h = 0; h < 3; ++h)
  {
    auto host = collector.GetHostPool()->Create(L"server" + std::to_wstring(h));
    tasks.push_back(collector.GetTaskPool()->Deploy(L"t", host->GetId(), user->GetId()));
    ids.push_back(tasks.back()->GetId());
  }
  auto remover = std::make_shared<CTaskRemover>(collector.GetTaskPool(), ids);
  std::vector<std::shared_ptr<ICollection>> collections;
  for (const auto& task : tasks)
  {
    auto collection = task->CreateCollection(L"Fake");
    collection->Subscribe(remover);
    collection->Run();
    ASSERT_TRUE(remover->WaitLatest(collection->GetId(), ICollectionTypes::Running));
    collections.push_back(collection);
  }
  collector.Stop(true);
  for (const auto& collection : collections)
  {
    EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
  }
  for (const GUID& id : ids)
  {
    EXPECT_EQ(collector.GetTaskPool()->Get(id), nullptr);
  }
}

TEST_F(CollectorTest, PoolsOutliveTheCollector)
{
  auto collector = collector::win_events::create_collector(m_workers, m_token);
  auto hosts = collector->GetHostPool();
  auto users = collector->GetUserPool();
  auto tasks = collector->GetTaskPool();
  auto classes = collector->GetClassPool();
  std::weak_ptr<ICollector> weakCollector = collector;
  collector.reset();
  EXPECT_TRUE(weakCollector.expired());
  auto host = hosts->Create(L"server01");
  auto user = users->Create(L"CORP\\alice", L"pw");
  EXPECT_EQ(hosts->Get(host->GetId()), host);
  auto task = tasks->Deploy(L"after", host->GetId(), user->GetId());
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(tasks->Get(task->GetId()), task);
  EXPECT_NE(classes->Get(GUID_NULL), nullptr);
  // The task pool keeps what it resolves with; the user pool switch still works.
  auto bob = users->Create(L"bob", L"");
  EXPECT_EQ(task->SwitchUser(bob->GetId()), user->GetId());
}

TEST_F(CollectorTest, UnknownTypeThroughTheFactoryGivesEmptyPointer)
{
  auto collector = collector::win_events::create_collector(m_workers, m_token);
  auto host = collector->GetHostPool()->CreateDefault(L"localhost");
  auto user = collector->GetUserPool()->CreateDefault(L"", L"");
  auto task = collector->GetTaskPool()->Deploy(L"t", GUID_NULL, GUID_NULL);
  EXPECT_EQ(task->CreateCollection(L"NoSuchType"), nullptr);
  EXPECT_EQ(task->CreateCollection(L"windowsevents"), nullptr);
  EXPECT_EQ(task->GetState(), 1);
}
} // namespace
