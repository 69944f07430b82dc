// CTask and CTaskPool on a real thread pool with fake collection types: deployment checks,
// creation by exact type name with a class per collection, removal, user switches, the state
// numbers, Cancel and Stop.
#include "TaskTestSupport.h"

#include "ClassPool.h"
#include "HostPool.h"
#include "TaskPool.h"
#include "UserPool.h"

#include "KeldaKernel/Exceptions.h"
#include "TestSupport/LogCapture.h"

#include <future>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using namespace natc_task_test;
using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
std::wstring GuidText(const GUID& id)
{
  wchar_t text[39] = {};
  StringFromGUID2(id, text, 39);
  return text;
}

class TaskTest : public ::testing::Test
{
protected:
  void SetUp() override
  {
    m_host = m_hostPool->Create(L"server01");
    m_user = m_userPool->Create(L"CORP\\alice", L"secret");
    m_taskPool = std::make_shared<CTaskPool>(m_classPool, m_userPool, m_hostPool, m_token, m_workers, m_log,
                                             MakeFakeFactory(m_gate));
  }

  void TearDown() override
  {
    m_gate->Open();
    m_taskPool->StopAll(true);
  }

  std::shared_ptr<ITask> Deploy() { return m_taskPool->Deploy(L"main", m_host->GetId(), m_user->GetId()); }

  std::shared_ptr<CFakeCollection> Fake(const std::shared_ptr<ICollection>& collection)
  {
    return std::dynamic_pointer_cast<CFakeCollection>(collection);
  }

  // Workers may still be ending an update the test no longer waits for: joined here, before the
  // fixture's members go, so that none of them logs while the process exits.
  ~TaskTest() override { m_workers.shutdown(); }

  pool m_workers{2};
  std::shared_ptr<CLog> m_log = std::make_shared<CLog>(nullptr, L"[NatC]");
  std::shared_ptr<ICancellation> m_token = create_cancellation();
  std::shared_ptr<CHostPool> m_hostPool = std::make_shared<CHostPool>();
  std::shared_ptr<CUserPool> m_userPool = std::make_shared<CUserPool>();
  std::shared_ptr<CClassPool> m_classPool = std::make_shared<CClassPool>();
  std::shared_ptr<CGate> m_gate = std::make_shared<CGate>();
  std::shared_ptr<CTaskPool> m_taskPool;
  std::shared_ptr<IHost> m_host;
  std::shared_ptr<IUser> m_user;
};

// --- task pool --------------------------------------------------------------------------------

TEST_F(TaskTest, DeployOnDefaultHostAndUserWorksOnceBothExist)
{
  EXPECT_THROW(m_taskPool->Deploy(L"default", GUID_NULL, GUID_NULL), CHResultException);
  m_hostPool->CreateDefault(L"localhost");
  m_userPool->CreateDefault(L"", L"");
  auto task = m_taskPool->Deploy(L"default", GUID_NULL, GUID_NULL);
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(task->GetHostId(), GUID_NULL);
  EXPECT_EQ(task->GetUserId(), GUID_NULL);
  EXPECT_EQ(m_taskPool->Get(task->GetId()), task);
}

TEST_F(TaskTest, DeployWithUnknownHostThrowsInvalidArgAndAddsNothing)
{
  GUID unknown{};
  UuidCreate(&unknown);
  try
  {
    m_taskPool->Deploy(L"x", unknown, m_user->GetId());
    FAIL() << "Deploy accepted an unknown host";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(error.hresult(), E_INVALIDARG);
    EXPECT_EQ(static_cast<std::uint32_t>(error.hresult()), 0x80070057u);
  }
  EXPECT_EQ(m_taskPool->Size(), 0u);
}

TEST_F(TaskTest, DeployWithBothUnknownReportsTheHost)
{
  GUID host{};
  GUID user{};
  UuidCreate(&host);
  UuidCreate(&user);
  try
  {
    m_taskPool->Deploy(L"x", host, user);
    FAIL() << "Deploy accepted unknown identifiers";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(error.hresult(), E_INVALIDARG);
    EXPECT_NE(error.message().find(L"Host"), std::wstring::npos) << kelda::ToUtf8(error.message());
    EXPECT_NE(error.message().find(GuidText(host)), std::wstring::npos);
  }
  EXPECT_EQ(m_taskPool->Size(), 0u);
}

TEST_F(TaskTest, DeployWithUnknownUserThrowsInvalidArgAndAddsNothing)
{
  GUID unknown{};
  UuidCreate(&unknown);
  try
  {
    m_taskPool->Deploy(L"x", m_host->GetId(), unknown);
    FAIL() << "Deploy accepted an unknown user";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(error.hresult(), E_INVALIDARG);
    EXPECT_NE(error.message().find(L"User"), std::wstring::npos);
  }
  EXPECT_EQ(m_taskPool->Size(), 0u);
}

TEST_F(TaskTest, RemoveOfUnknownIdentifierDoesNothing)
{
  auto task = Deploy();
  GUID unknown{};
  UuidCreate(&unknown);
  EXPECT_NO_THROW(m_taskPool->Remove(unknown));
  EXPECT_EQ(m_taskPool->Size(), 1u);
  EXPECT_EQ(m_taskPool->Get(task->GetId()), task);
}

TEST_F(TaskTest, TwoDeploysWithSameHostAndUserMakeTwoTasks)
{
  auto first = Deploy();
  auto second = Deploy();
  EXPECT_NE(first->GetId(), second->GetId());
  EXPECT_EQ(m_taskPool->Get(first->GetId()), first);
  EXPECT_EQ(m_taskPool->Get(second->GetId()), second);
  EXPECT_EQ(m_taskPool->Size(), 2u);
}

TEST_F(TaskTest, RemovedTaskLivesOnForItsHolderAndKeepsItsCollectionsRunning)
{
  m_gate->Open();
  auto task = Deploy();
  auto recorder = std::make_shared<CStateRecorder>();
  auto collection = task->CreateCollection(L"Fake");
  collection->Subscribe(recorder);
  collection->Run();
  ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Running));
  m_taskPool->Remove(task->GetId());
  EXPECT_EQ(m_taskPool->Get(task->GetId()), nullptr);
  EXPECT_EQ(collection->GetState(), ICollectionTypes::Running);
  EXPECT_EQ(task->GetCollection(collection->GetId()), collection);
  task->Stop(true);
  EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
}

// --- task: creation, classes, removal ---------------------------------------------------------

TEST_F(TaskTest, NewTaskHasStateZeroAndTheDeployedHost)
{
  auto task = Deploy();
  EXPECT_EQ(task->GetState(), 0);
  EXPECT_EQ(task->GetHostId(), m_host->GetId());
  EXPECT_EQ(task->GetUserId(), m_user->GetId());
}

TEST_F(TaskTest, TypeNamesAreExactAndUnknownOnesGiveEmptyPointerAndStateOne)
{
  auto task = Deploy();
  EXPECT_EQ(task->CreateCollection(L"fake"), nullptr);
  EXPECT_EQ(task->GetState(), 1);
  EXPECT_EQ(task->CreateCollection(L"Fake "), nullptr);
  EXPECT_EQ(task->CreateCollection(L"Fak"), nullptr);
  EXPECT_EQ(task->CreateCollection(L""), nullptr);
  EXPECT_EQ(static_cast<CTask&>(*task).Size(), 0u);
}

TEST_F(TaskTest, LowerCaseWindowsEventsGivesEmptyPointerWithTheLibraryTypes)
{
  // The library's own table: its type names are case-sensitive too.
  auto task = std::make_shared<CTask>(m_log, m_workers, m_token, m_host, m_user, m_classPool, m_userPool);
  EXPECT_EQ(task->CreateCollection(L"windowsevents"), nullptr);
  EXPECT_EQ(task->GetState(), 1);
  EXPECT_EQ(task->CreateCollection(L"miprop"), nullptr);
  EXPECT_EQ(task->CreateCollection(L"MIPERF"), nullptr);
}

TEST_F(TaskTest, EachCollectionGetsAClassNamedByItsType)
{
  auto task = Deploy();
  auto first = task->CreateCollection(L"Fake");
  auto second = task->CreateCollection(L"Fake");
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(task->GetState(), 1);
  EXPECT_NE(first->GetId(), second->GetId());
  ASSERT_NE(first->GetClass(), nullptr);
  EXPECT_EQ(first->GetClass()->GetName(), L"Fake");
  EXPECT_EQ(first->GetName(), L"Fake");
  EXPECT_NE(first->GetClass()->GetId(), second->GetClass()->GetId());
  EXPECT_EQ(m_classPool->Get(first->GetClass()->GetId()), first->GetClass());
  EXPECT_EQ(task->GetCollection(first->GetId()), first);
  EXPECT_EQ(task->GetCollection(second->GetId()), second);
}

TEST_F(TaskTest, RemoveCollectionDropsItAndItsClass)
{
  auto task = Deploy();
  auto collection = task->CreateCollection(L"Fake");
  const GUID classId = collection->GetClass()->GetId();
  task->RemoveCollection(collection->GetId());
  EXPECT_EQ(task->GetCollection(collection->GetId()), nullptr);
  EXPECT_EQ(m_classPool->Get(classId), nullptr);
  EXPECT_EQ(m_classPool->Get(collection->GetId()), nullptr);
  // The default class stays.
  EXPECT_NE(m_classPool->Get(GUID_NULL), nullptr);
}

TEST_F(TaskTest, CollectionIsFiledUnderItsClassIdentifierAndFoundByEither)
{
  auto task = Deploy();
  auto collection = task->CreateCollection(L"Fake");
  ASSERT_NE(collection, nullptr);
  const GUID classId = collection->GetClass()->GetId();
  EXPECT_EQ(task->GetCollection(classId), collection);
  EXPECT_EQ(task->GetCollection(collection->GetId()), collection);
  // Filed once, whichever identifier finds it.
  EXPECT_EQ(std::dynamic_pointer_cast<CTask>(task)->Size(), 1u);
}

TEST_F(TaskTest, RemoveCollectionByClassIdentifierDropsItAndItsClass)
{
  auto task = Deploy();
  auto collection = task->CreateCollection(L"Fake");
  const GUID classId = collection->GetClass()->GetId();
  task->RemoveCollection(classId);
  EXPECT_EQ(task->GetCollection(classId), nullptr);
  EXPECT_EQ(task->GetCollection(collection->GetId()), nullptr);
  EXPECT_EQ(m_classPool->Get(classId), nullptr);
}

TEST_F(TaskTest, RemoveCollectionOfUnknownIdentifierDoesNothing)
{
  auto task = Deploy();
  auto collection = task->CreateCollection(L"Fake");
  GUID unknown{};
  UuidCreate(&unknown);
  EXPECT_NO_THROW(task->RemoveCollection(unknown));
  EXPECT_EQ(task->GetCollection(collection->GetId()), collection);
  EXPECT_EQ(m_classPool->Get(collection->GetClass()->GetId()), collection->GetClass());
}

TEST_F(TaskTest, FailedCreationLeavesNoClassAndStillSetsStateOne)
{
  auto task = Deploy();
  task->Cancel();
  EXPECT_EQ(task->GetState(), 2);
  const std::size_t classes = m_classPool->Size();
  EXPECT_THROW(task->CreateCollection(L"Broken"), CKeldaException);
  EXPECT_EQ(task->GetState(), 1);
  EXPECT_EQ(task->CreateCollection(L"Null"), nullptr);
  EXPECT_EQ(m_classPool->Size(), classes);
  EXPECT_EQ(static_cast<CTask&>(*task).Size(), 0u);
}

TEST_F(TaskTest, CompanionIsFoundByIdentifierAndGoesWithItsCollection)
{
  auto factory = std::make_shared<CCollectionFactory>();
  std::shared_ptr<ICollection> companion;
  factory->Add(L"Pair", [&](const SCollectionParts& parts) {
    companion = std::make_shared<CCompanion>();
    return SMadeCollection{std::make_shared<CFakeCollection>(parts, nullptr), {companion}};
  });
  auto task = std::make_shared<CTask>(m_log, m_workers, m_token, m_host, m_user, m_classPool, m_userPool, factory);
  auto collection = task->CreateCollection(L"Pair");
  ASSERT_NE(collection, nullptr);
  ASSERT_NE(companion, nullptr);
  EXPECT_EQ(task->GetCollection(companion->GetId()), companion);
  // The task runs and stops only its own collections; the companion is not one of them.
  EXPECT_EQ(task->Size(), 1u);
  task->RemoveCollection(collection->GetId());
  EXPECT_EQ(task->GetCollection(collection->GetId()), nullptr);
  EXPECT_EQ(task->GetCollection(companion->GetId()), nullptr);
}

// --- task: users ------------------------------------------------------------------------------

TEST_F(TaskTest, SwitchUserReachesEveryCollectionAndReturnsThePreviousUser)
{
  auto task = Deploy();
  auto first = Fake(task->CreateCollection(L"Fake"));
  auto second = Fake(task->CreateCollection(L"Fake"));
  auto bob = m_userPool->Create(L"bob@corp.example", L"pw");
  EXPECT_EQ(task->SwitchUser(bob->GetId()), m_user->GetId());
  EXPECT_EQ(task->GetUserId(), bob->GetId());
  EXPECT_EQ(first->CurrentUser(), bob);
  EXPECT_EQ(second->CurrentUser(), bob);
  // A collection made afterwards starts with the new user.
  auto third = Fake(task->CreateCollection(L"Fake"));
  EXPECT_EQ(third->CurrentUser(), bob);
}

TEST_F(TaskTest, SwitchUserDuringCreationsReachesEveryCollection)
{
  auto task = Deploy();
  auto bob = m_userPool->Create(L"bob@corp.example", L"pw");
  const std::shared_ptr<IUser> users[] = {m_user, bob};
  std::vector<std::shared_ptr<ICollection>> made;
  std::thread creator([&] {
    for (int i = 0; i < 200; ++i)
      made.push_back(task->CreateCollection(L"Fake"));
  });
  for (int i = 0; i < 200; ++i)
    task->SwitchUser(users[i % 2]->GetId());
  creator.join();
  // Whatever the interleaving, every collection ends with the task's user.
  for (const auto& collection : made)
    EXPECT_EQ(Fake(collection)->CurrentUser()->GetId(), task->GetUserId());
}

TEST_F(TaskTest, SwitchUserToUnknownUserThrowsWithItsGuidAndKeepsTheUser)
{
  auto task = Deploy();
  auto collection = Fake(task->CreateCollection(L"Fake"));
  GUID unknown{};
  UuidCreate(&unknown);
  try
  {
    task->SwitchUser(unknown);
    FAIL() << "SwitchUser accepted an unknown user";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"User " + GuidText(unknown) + L" not found");
  }
  EXPECT_EQ(task->GetUserId(), m_user->GetId());
  EXPECT_EQ(collection->CurrentUser(), m_user);
}

TEST_F(TaskTest, SwitchUserAfterUserPoolReleasedThrowsUserPoolIsExpired)
{
  auto task = Deploy();
  auto bob = m_userPool->Create(L"bob", L"");
  m_taskPool.reset();
  m_userPool.reset();
  try
  {
    task->SwitchUser(bob->GetId());
    FAIL() << "SwitchUser worked without a user pool";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"UserPool is expired");
  }
  EXPECT_EQ(task->GetUserId(), m_user->GetId());
  task->Stop(true);
  m_taskPool = std::make_shared<CTaskPool>(m_classPool, std::make_shared<CUserPool>(), m_hostPool, m_token,
                                           m_workers, m_log, MakeFakeFactory());
}

// --- task: states, cancel, stop ---------------------------------------------------------------

TEST_F(TaskTest, StateNumbersFollowCreateCancelAndStop)
{
  auto task = Deploy();
  EXPECT_EQ(task->GetState(), 0);
  task->CreateCollection(L"Fake");
  EXPECT_EQ(task->GetState(), 1);
  task->Cancel();
  EXPECT_EQ(task->GetState(), 2);
  task->Stop(false);
  EXPECT_EQ(task->GetState(), 6);
  // No transition is refused.
  task->CreateCollection(L"nothing");
  EXPECT_EQ(task->GetState(), 1);
}

// A collection whose Stop reports the task's state at that moment.
class CStateProbe : public CCompanion
{
public:
  explicit CStateProbe(std::shared_ptr<std::atomic<ITask*>> task) : m_task(std::move(task)) {}
  void Stop(bool) override { m_seen = (*m_task).load()->GetState(); }
  int Seen() const { return m_seen.load(); }

private:
  std::shared_ptr<std::atomic<ITask*>> m_task;
  std::atomic<int> m_seen{-1};
};

TEST_F(TaskTest, StateIsFiveWhileStopRuns)
{
  auto taskPointer = std::make_shared<std::atomic<ITask*>>(nullptr);
  auto factory = std::make_shared<CCollectionFactory>();
  std::shared_ptr<CStateProbe> probe;
  factory->Add(L"Probe", [&](const SCollectionParts&) {
    probe = std::make_shared<CStateProbe>(taskPointer);
    return SMadeCollection{probe, {}};
  });
  auto task = std::make_shared<CTask>(m_log, m_workers, m_token, m_host, m_user, m_classPool, m_userPool, factory);
  taskPointer->store(task.get());
  ASSERT_NE(task->CreateCollection(L"Probe"), nullptr);
  task->Stop(false);
  EXPECT_EQ(probe->Seen(), 5);
  EXPECT_EQ(task->GetState(), 6);
}

TEST_F(TaskTest, StopTrueEndsRunningAndStartingCollectionsInStopped)
{
  auto task = Deploy();
  auto recorder = std::make_shared<CStateRecorder>();
  auto running = Fake(task->CreateCollection(L"Fake"));
  auto starting = Fake(task->CreateCollection(L"Fake"));
  running->Subscribe(recorder);
  starting->Subscribe(recorder);
  // Both first updates wait at the gate: both collections are still Starting.
  running->Run();
  starting->Run();
  ASSERT_TRUE(running->WaitUpdates(1));
  ASSERT_TRUE(starting->WaitUpdates(1));
  auto stopped = std::async(std::launch::async, [&] { task->Stop(true); });
  m_gate->Open();
  ASSERT_EQ(stopped.wait_for(waitLimit), std::future_status::ready);
  EXPECT_EQ(running->GetState(), ICollectionTypes::Stopped);
  EXPECT_EQ(starting->GetState(), ICollectionTypes::Stopped);
  EXPECT_EQ(task->GetState(), 6);
}

TEST_F(TaskTest, StopTrueStopsEachCollectionOnceAlsoWhenStillStarting)
{
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  auto task = Deploy();
  // Two updates held at the gate occupy both workers, so the third collection's first update
  // waits for a worker and that collection is still Starting when the task stops.
  auto first = Fake(task->CreateCollection(L"Fake"));
  auto second = Fake(task->CreateCollection(L"Fake"));
  first->Run();
  second->Run();
  ASSERT_TRUE(first->WaitUpdates(1));
  ASSERT_TRUE(second->WaitUpdates(1));
  auto starting = Fake(task->CreateCollection(L"Fake"));
  starting->Run();
  auto stopped = std::async(std::launch::async, [&] { task->Stop(true); });
  ASSERT_TRUE(capture.Sink().WaitFor(L"Waiting for current task..."));
  m_gate->Open();
  ASSERT_EQ(stopped.wait_for(waitLimit), std::future_status::ready);
  for (const auto& collection : {first, second, starting})
  {
    EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
  }
  EXPECT_EQ(capture.Sink().Count(L"Stop requested"), 3u);
}

TEST_F(TaskTest, CancelEndsEveryCollectionInStoppedAndCancelsTheSharedSource)
{
  m_gate->Open();
  auto task = Deploy();
  auto other = Deploy();
  auto recorder = std::make_shared<CStateRecorder>();
  auto first = task->CreateCollection(L"Fake");
  auto second = task->CreateCollection(L"Fake");
  auto elsewhere = other->CreateCollection(L"Fake");
  for (const auto& collection : {first, second, elsewhere})
  {
    collection->Subscribe(recorder);
    collection->Run();
    ASSERT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Running));
  }
  task->Cancel();
  EXPECT_EQ(task->GetState(), 2);
  EXPECT_TRUE(recorder->WaitLatest(first->GetId(), ICollectionTypes::Stopped));
  EXPECT_TRUE(recorder->WaitLatest(second->GetId(), ICollectionTypes::Stopped));
  // The tasks of one collector share its cancellation source: cancelling one task cancels it.
  EXPECT_TRUE(m_token->is_cancelled());
  // A collection started after the cancellation stops at its first update, in any task.
  first->Run();
  EXPECT_TRUE(recorder->WaitLatest(first->GetId(), ICollectionTypes::Stopped));
  elsewhere->Stop(true);
  elsewhere->Run();
  EXPECT_TRUE(recorder->WaitLatest(elsewhere->GetId(), ICollectionTypes::Stopped));
}

TEST_F(TaskTest, CancelDuringAnUpdateEndsInStopped)
{
  auto task = Deploy();
  auto recorder = std::make_shared<CStateRecorder>();
  auto collection = Fake(task->CreateCollection(L"Fake"));
  collection->Subscribe(recorder);
  collection->Run();
  ASSERT_TRUE(collection->WaitUpdates(1));
  task->Cancel();
  m_gate->Open();
  EXPECT_TRUE(recorder->WaitLatest(collection->GetId(), ICollectionTypes::Stopped));
}
} // namespace
