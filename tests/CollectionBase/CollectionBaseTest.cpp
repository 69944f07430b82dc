// CCollectionBase life cycle on a real pool: every transition, log line and notification.
// A scripted collection decides what each update does; the test waits on conditions only.
#include "TestSupport.h"

#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <thread>

using namespace natc_test;
using collector::ni::ICollectionTypes;
using States = ICollectionTypes::States;

namespace
{
class CollectionBaseTest : public ::testing::Test
{
protected:
  void SetUp() override { Make(2); }
  void Make(unsigned threads)
  {
    m_pool.emplace(threads);
    m_parent = create_cancellation();
    m_collection = std::make_shared<CScriptedCollection>(m_root, *m_pool, m_parent,
                                                         std::make_shared<CFixedHost>(L"server01"),
                                                         std::make_shared<CFixedUser>(L"alice"),
                                                         std::make_shared<CFixedClass>(L"WindowsEvents"));
    m_subscriber = std::make_shared<CRecordingSubscriber>();
    m_collection->Subscribe(m_subscriber);
  }

  void TearDown() override
  {
    if (m_collection)
    {
      m_collection->ReleaseAll();
      m_collection->Stop(true);
      m_collection.reset();
    }
    // Workers may still be ending an update the test no longer waits for: joined here, so that
    // none of them outlives the fixture and logs while the process exits.
    if (m_pool)
      m_pool->shutdown();
    m_pool.reset();
  }

  // Runs Stop(true) on another thread while the update is held, and lets the update go once
  // Stop is waiting for it.
  void StopSyncDuringHeldUpdate()
  {
    auto stopped = std::async(std::launch::async, [this] { m_collection->Stop(true); });
    ASSERT_TRUE(Sink().WaitFor(L"Waiting for current task..."));
    m_collection->Release();
    ASSERT_EQ(stopped.wait_for(waitLimit), std::future_status::ready);
    stopped.get();
  }

  CCapturingSink& Sink() { return m_capture.Sink(); }

  // Returns once the pool has run everything queued before it on a one-worker pool, or once
  // both workers have taken a task after everything queued before.
  void WaitForPool()
  {
    for (unsigned worker = 0; worker < m_pool->thread_count(); ++worker)
    {
      m_pool->dispatch_proc([] {}).halt(false, false);
    }
  }

  // A one-worker collection whose first run has had its update and its whole end, so that the
  // next state change is handed out by the thread that makes it.
  bool FirstUpdateOverOnOneWorker(std::vector<Step> script)
  {
    Make(1);
    m_collection->Script(std::move(script));
    m_collection->Run();
    const bool running = m_subscriber->WaitFor(ICollectionTypes::Running);
    WaitForPool();
    return running;
  }

  CLoggerCapture m_capture{ELogLevel::Debug};
  std::shared_ptr<CLog> m_root = std::make_shared<CLog>(nullptr, L"[NatC]");
  std::optional<pool> m_pool;
  std::shared_ptr<ICancellation> m_parent;
  std::shared_ptr<CScriptedCollection> m_collection;
  std::shared_ptr<CRecordingSubscriber> m_subscriber;
};

// A log sink that holds the first thread writing a line with `fragment` until Open().
class CLineGate : public ILogSink
{
public:
  explicit CLineGate(std::wstring fragment) : m_fragment(std::move(fragment)) {}
  void write(ELogLevel, std::wstring_view line) override
  {
    if (line.find(m_fragment) == std::wstring_view::npos)
    {
      return;
    }
    std::unique_lock lock(m_lock);
    if (m_held)
    {
      return;
    }
    m_held = true;
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return m_open; });
  }
  bool WaitHeld()
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] { return m_held; });
  }
  void Open()
  {
    {
      const std::lock_guard lock(m_lock);
      m_open = true;
    }
    m_changed.notify_all();
  }

private:
  std::wstring m_fragment;
  std::mutex m_lock;
  std::condition_variable m_changed;
  bool m_held = false;
  bool m_open = false;
};

// Starts the collection again from its subscription when it first hears Stopped, with a hook on
// either side of that Run.
class CRunOnStopped : public CRecordingSubscriber
{
public:
  std::weak_ptr<CScriptedCollection> collection;
  std::function<void()> beforeRun = [] {};
  std::function<void()> afterRun = [] {};
  bool threw = false;
  void OnStateChanged(const GUID& id, const ICollectionTypes::IState& state) override
  {
    CRecordingSubscriber::OnStateChanged(id, state);
    const auto target = collection.lock();
    if (state.GetState() != ICollectionTypes::Stopped || m_done || !target)
    {
      return;
    }
    m_done = true;
    beforeRun();
    try
    {
      target->Run();
    }
    catch (const std::exception&)
    {
      threw = true;
    }
    afterRun();
  }

private:
  bool m_done = false;
};

const std::vector<States> runStoppedAndRunAgain{ICollectionTypes::Starting, ICollectionTypes::Running,
                                                ICollectionTypes::Stopping, ICollectionTypes::Stopped,
                                                ICollectionTypes::Starting, ICollectionTypes::Running};

// Occupies the only worker of a one-thread pool until released.
class CPoolBlocker
{
public:
  explicit CPoolBlocker(const pool& threadPool)
  {
    auto release = m_release.get_future().share();
    auto entered = std::make_shared<std::promise<void>>();
    auto enteredFuture = entered->get_future();
    m_task = threadPool.dispatch_proc([release, entered] {
      entered->set_value();
      release.wait();
    });
    enteredFuture.wait();
  }
  ~CPoolBlocker() { Release(); }
  CPoolBlocker(const CPoolBlocker&) = delete;
  CPoolBlocker& operator=(const CPoolBlocker&) = delete;

  void Release()
  {
    if (!m_released)
    {
      m_released = true;
      m_release.set_value();
    }
  }

private:
  std::promise<void> m_release;
  pool::tp_task m_task;
  bool m_released = false;
};
} // namespace

TEST_F(CollectionBaseTest, ConstructionGivesIdentityAndStoppedState)
{
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
  EXPECT_EQ(m_collection->Internal(), 0);
  EXPECT_EQ(m_collection->GetName(), L"WindowsEvents");
  EXPECT_NE(m_collection->GetId(), GUID_NULL);
  EXPECT_EQ(m_collection->GetClass()->GetName(), L"WindowsEvents");
  auto other = std::make_shared<CScriptedCollection>(m_root, *m_pool, m_parent, nullptr, nullptr, nullptr);
  EXPECT_NE(other->GetId(), m_collection->GetId());
  EXPECT_EQ(other->GetName(), L"");
  EXPECT_EQ(other->GetClass(), nullptr);
  EXPECT_DOUBLE_EQ(m_collection->Period().GetTotalDays(), 1.0 / 1440);
  EXPECT_TRUE(m_subscriber->Changes().empty());
}

TEST_F(CollectionBaseTest, SetUpdatePeriodStoresSecondsAsDays)
{
  m_collection->SetUpdatePeriod(90);
  EXPECT_DOUBLE_EQ(m_collection->Period().GetTotalDays(), 90.0 / 86400);
  EXPECT_EQ(m_collection->Period().GetStatus(), COleDateTimeSpan::valid);
}

TEST_F(CollectionBaseTest, SetUserDuringAnUpdateIsSeenByTheNextOne)
{
  const auto alice = m_collection->CurrentUser();
  ASSERT_NE(alice, nullptr);
  m_collection->SetUpdatePeriod(0);
  m_collection->Script({Step::Block, Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(1));
  EXPECT_EQ(m_collection->SeenUser(), alice);
  auto bob = std::make_shared<CFixedUser>(L"bob");
  m_collection->SetUser(bob);
  EXPECT_EQ(m_collection->CurrentUser(), bob);
  m_collection->Release();
  ASSERT_TRUE(m_collection->WaitCalls(2));
  EXPECT_EQ(m_collection->SeenUser(), bob);
}

TEST_F(CollectionBaseTest, StopOnStoppedCollectionLogsAndChangesNothing)
{
  m_collection->Stop(false);
  EXPECT_EQ(Sink().Count(L"[NatC][C:server01:WindowsEvents] Stop requested, sync: false. Current state: Stopped; "
                         L"internal state: Stopped"),
            1u);
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
  EXPECT_EQ(m_collection->Internal(), 0);
  EXPECT_TRUE(m_subscriber->Changes().empty());
  EXPECT_EQ(Sink().Count(L"New state"), 0u);
  EXPECT_EQ(Sink().Count(L"Waiting for current task..."), 0u);
}

TEST_F(CollectionBaseTest, RunStartsAndFirstGoodUpdateNotifiesRunning)
{
  m_collection->Script({Step::Succeed});
  m_collection->Run();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running));
  ASSERT_TRUE(m_collection->WaitCalls(1));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running}));
  for (const auto& change : m_subscriber->Changes())
  {
    EXPECT_EQ(change.collection, m_collection->GetId());
    EXPECT_EQ(change.description, L"");
  }
  EXPECT_EQ(Sink().Count(L"Start requested. Current state: Stopped; internal state: Stopped"), 1u);
  EXPECT_EQ(Sink().Count(L"New state: Starting (current internal state: Starting) "), 1u);
  EXPECT_EQ(Sink().Count(L"New state: Running (current internal state: Running) "), 1u);
  EXPECT_EQ(Sink().Count(L"Update started. Current state: Starting; internal state: Starting"), 1u);
  ASSERT_TRUE(Sink().WaitFor(L"Update finished"));
  EXPECT_EQ(m_collection->Internal(), 2);
}

TEST_F(CollectionBaseTest, SecondRunWhileStartingOrRunningChangesNothing)
{
  Make(1);
  m_collection->Script({Step::Succeed});
  {
    CPoolBlocker blocker(*m_pool);
    m_collection->Run();
    EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Starting);
    m_collection->Run();
    EXPECT_EQ(Sink().Count(L"Start requested. Current state: Starting; internal state: Starting"), 1u);
    EXPECT_EQ(m_collection->Internal(), 1);
  }
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running));
  m_collection->Run();
  EXPECT_EQ(Sink().Count(L"Start requested. Current state: Running; internal state: Running"), 1u);
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running}));
  EXPECT_EQ(Sink().Count(L"New state: Starting"), 1u);
}

TEST_F(CollectionBaseTest, StopWhileStartingEndsTheRunWithoutAnUpdate)
{
  Make(1);
  m_collection->Script({Step::Succeed});
  {
    CPoolBlocker blocker(*m_pool);
    m_collection->Run();
    m_collection->Stop(false);
    EXPECT_EQ(Sink().Count(L"Stop requested, sync: false. Current state: Starting; internal state: Starting"), 1u);
    // The first update was still waiting for a worker: it is withdrawn and the stop is complete.
    EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
    EXPECT_EQ(m_collection->Internal(), 0);
  }
  WaitForPool();
  EXPECT_EQ(m_collection->Calls(), 0);
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopping,
                                                         ICollectionTypes::Stopped}));
}

TEST_F(CollectionBaseTest, StopSyncWhileStartingReturnsWithoutWaitingForTheFirstUpdate)
{
  Make(1);
  m_collection->SetUpdatePeriod(0);
  m_collection->Script({Step::Succeed, Step::Succeed, Step::Succeed});
  CPoolBlocker blocker(*m_pool);
  m_collection->Run();
  // The only worker is held: a stop that waited for the first update would never return.
  auto stopped = std::async(std::launch::async, [this] { m_collection->Stop(true); });
  ASSERT_EQ(stopped.wait_for(waitLimit), std::future_status::ready);
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
  blocker.Release();
  WaitForPool();
  EXPECT_EQ(m_collection->Calls(), 0);
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
}

TEST_F(CollectionBaseTest, StopSyncWithBackToBackUpdatesWaitsForTheOneInProgressOnly)
{
  m_collection->SetUpdatePeriod(0);
  m_collection->Script({Step::Succeed, Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(2));
  auto stopped = std::async(std::launch::async, [this] { m_collection->Stop(true); });
  ASSERT_TRUE(Sink().WaitFor(L"Waiting for current task..."));
  m_collection->Release();
  ASSERT_EQ(stopped.wait_for(waitLimit), std::future_status::ready);
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
  WaitForPool();
  EXPECT_EQ(m_collection->Calls(), 2);
}

TEST_F(CollectionBaseTest, StateNotificationsKeepTheOrderOfTheChanges)
{
  m_collection->Script({Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(1));
  // The thread that announces Stopping is held at its log line until the update has ended.
  auto gate = std::make_shared<CLineGate>(L"New state: Stopping");
  CKeldaLogger::instance().addSink(gate);
  auto stopped = std::async(std::launch::async, [this] { m_collection->Stop(false); });
  ASSERT_TRUE(gate->WaitHeld());
  m_collection->Release();
  ASSERT_TRUE(Sink().WaitFor(L"Update finished"));
  gate->Open();
  ASSERT_EQ(stopped.wait_for(waitLimit), std::future_status::ready);
  CKeldaLogger::instance().removeSink(gate);
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Stopped));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopping,
                                                         ICollectionTypes::Stopped}));
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
}

TEST_F(CollectionBaseTest, NoUpdateBeginsBeforeSubscribersHaveHeardOfStarting)
{
  Make(1);
  m_collection->Script({Step::Succeed});
  // The thread announcing Starting is held before the subscribers hear of it.
  auto gate = std::make_shared<CLineGate>(L"New state: Starting");
  CKeldaLogger::instance().addSink(gate);
  auto started = std::async(std::launch::async, [this] { m_collection->Run(); });
  ASSERT_TRUE(gate->WaitHeld());
  // An update queued by now would have run on the only worker: its records could come first.
  WaitForPool();
  EXPECT_EQ(m_collection->Calls(), 0);
  EXPECT_TRUE(m_subscriber->States().empty());
  gate->Open();
  ASSERT_EQ(started.wait_for(waitLimit), std::future_status::ready);
  CKeldaLogger::instance().removeSink(gate);
  started.get();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running));
  EXPECT_EQ(m_collection->Calls(), 1);
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running}));
}

TEST_F(CollectionBaseTest, StopFromASubscriberOfStartingEndsTheRunWithoutAnUpdate)
{
  class CStopOnStarting : public CRecordingSubscriber
  {
  public:
    std::weak_ptr<CScriptedCollection> collection;
    void OnStateChanged(const GUID& id, const ICollectionTypes::IState& state) override
    {
      CRecordingSubscriber::OnStateChanged(id, state);
      const auto target = collection.lock();
      if (state.GetState() == ICollectionTypes::Starting && target)
      {
        target->Stop(false);
      }
    }
  };
  Make(1);
  m_collection->Script({Step::Succeed});
  auto stopper = std::make_shared<CStopOnStarting>();
  stopper->collection = m_collection;
  m_collection->Subscribe(stopper);
  m_collection->Run();
  WaitForPool();
  EXPECT_EQ(Sink().Count(L"Update started"), 0u);
  EXPECT_EQ(m_collection->Calls(), 0);
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
  EXPECT_EQ(m_collection->Internal(), 0);
  EXPECT_EQ(stopper->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopping,
                                                    ICollectionTypes::Stopped}));
}

TEST_F(CollectionBaseTest, UpdateOfAnEarlierRunLeavesTheNewRunAlone)
{
  // When the first run reports Stopped, its update still holds the in-progress flag: the
  // subscriber starts a run, whose update then waits for the flag; the test stops that run and
  // starts another while the first run's update is held at its end.
  auto restarter = std::make_shared<CRunOnStopped>();
  restarter->collection = m_collection;
  m_collection->Subscribe(restarter);
  m_collection->Script({Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(1));
  m_collection->Stop(false);
  m_collection->Script({Step::Block});
  // The first run's update is held once it has handed out its states, with its flag still set.
  auto gate = std::make_shared<CLineGate>(L"Update finished");
  CKeldaLogger::instance().addSink(gate);
  m_collection->Release();
  ASSERT_TRUE(gate->WaitHeld());
  // The second run's update has started on the other worker: it can no longer be withdrawn.
  ASSERT_TRUE(Sink().WaitFor(L"Update waits for the previous run's last update"));
  m_collection->Stop(false);
  m_collection->Run();
  gate->Open();
  ASSERT_TRUE(Sink().WaitFor(L"Update of an ended run skipped"));
  ASSERT_TRUE(restarter->WaitFor(ICollectionTypes::Starting, 3));
  ASSERT_TRUE(m_collection->WaitCalls(2));
  CKeldaLogger::instance().removeSink(gate);
  // The third run's own update runs it, under its own token.
  EXPECT_EQ(m_collection->Internal(), 2);
  m_collection->Release();
  ASSERT_TRUE(restarter->WaitFor(ICollectionTypes::Running));
  EXPECT_EQ(restarter->States(),
            (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopping, ICollectionTypes::Stopped,
                                 ICollectionTypes::Starting, ICollectionTypes::Stopping, ICollectionTypes::Stopped,
                                 ICollectionTypes::Starting, ICollectionTypes::Running}));
  EXPECT_EQ(Sink().Count(L"Update of an ended run skipped"), 1u);
  EXPECT_EQ(m_collection->Calls(), 2);
}

TEST_F(CollectionBaseTest, RunWhileAnotherThreadHandsOutStatesSchedulesNoUpdateBeforeItsStartingIsOut)
{
  ASSERT_TRUE(FirstUpdateOverOnOneWorker({Step::Succeed, Step::Succeed}));
  // The thread that stops the first run is held while it hands out Stopped.
  auto gate = std::make_shared<CLineGate>(L"New state: Stopped");
  CKeldaLogger::instance().addSink(gate);
  auto stopped = std::async(std::launch::async, [this] { m_collection->Stop(false); });
  ASSERT_TRUE(gate->WaitHeld());
  m_collection->Run();
  // Starting waits behind Stopped: an update scheduled by now would have run on the only worker.
  WaitForPool();
  EXPECT_EQ(m_collection->Calls(), 1);
  gate->Open();
  ASSERT_EQ(stopped.wait_for(waitLimit), std::future_status::ready);
  CKeldaLogger::instance().removeSink(gate);
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running, 2));
  EXPECT_EQ(m_collection->Calls(), 2);
  EXPECT_EQ(m_subscriber->States(), runStoppedAndRunAgain);
}

TEST_F(CollectionBaseTest, RunFromASubscriberSchedulesNoUpdateBeforeEverySubscriberHearsOfStarting)
{
  ASSERT_TRUE(FirstUpdateOverOnOneWorker({Step::Succeed, Step::Succeed}));
  auto restarter = std::make_shared<CRunOnStopped>();
  restarter->collection = m_collection;
  int callsWhenRunReturned = -1;
  // The other subscribers hear Starting only after this callback: an update scheduled by now
  // would have run on the only worker, and its records could reach them first.
  restarter->afterRun = [&] {
    WaitForPool();
    callsWhenRunReturned = m_collection->Calls();
  };
  m_collection->Subscribe(restarter);
  m_collection->Stop(false);
  EXPECT_EQ(callsWhenRunReturned, 1);
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running, 2));
  EXPECT_EQ(m_collection->Calls(), 2);
  EXPECT_EQ(m_subscriber->States(), runStoppedAndRunAgain);
}

TEST_F(CollectionBaseTest, RunOfACollectionWithoutSharedOwnerThrows)
{
  CScriptedCollection loose(m_root, *m_pool, m_parent, nullptr, nullptr, nullptr);
  auto subscriber = std::make_shared<CRecordingSubscriber>();
  loose.Subscribe(subscriber);
  EXPECT_THROW(loose.Run(), CKeldaException);
  EXPECT_EQ(loose.GetState(), ICollectionTypes::Stopped);
  EXPECT_EQ(loose.Internal(), 0);
  EXPECT_TRUE(subscriber->States().empty());
}

TEST_F(CollectionBaseTest, CollectionDestroyedWhileRunningSendsAFinalStopped)
{
  auto collection = std::make_shared<CScriptedCollection>(m_root, *m_pool, m_parent, nullptr, nullptr, nullptr);
  auto subscriber = std::make_shared<CRecordingSubscriber>();
  collection->Subscribe(subscriber);
  collection->Script({Step::Succeed});
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  collection.reset();
  // The last holder may be the update that just ended, on its worker.
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Stopped));
  EXPECT_EQ(subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running,
                                                       ICollectionTypes::Stopped}));
}

TEST_F(CollectionBaseTest, SubscriberThatThrowsOnRecordsStarvesNobodyAndIsLoggedOncePerUpdate)
{
  class CThrowingOnRecords : public CRecordingSubscriber
  {
  public:
    void OnRecords(const GUID&, ICollectionTypes::Records) override { throw std::runtime_error("no records"); }
  };
  auto later = std::make_shared<CRecordingSubscriber>();
  auto collection = std::make_shared<CScriptedCollection>(m_root, *m_pool, m_parent, nullptr, nullptr, nullptr);
  collection->Subscribe(std::make_shared<CThrowingOnRecords>());
  collection->Subscribe(later);
  const std::vector<std::shared_ptr<collector::ni::IRecord>> none;
  std::weak_ptr<CScriptedCollection> weak = collection;
  collection->SetHook([weak, &none] {
    if (const auto self = weak.lock())
    {
      self->Publish(none);
      self->Publish(none);
    }
  });
  collection->SetUpdatePeriod(0);
  collection->Script({Step::CallHook, Step::CallHook, Step::Block});
  collection->Run();
  ASSERT_TRUE(collection->WaitCalls(3));
  EXPECT_EQ(later->RecordCalls(), 4);
  EXPECT_EQ(Sink().Count(L"Subscriber failed to take the records"), 2u);
  EXPECT_EQ(later->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running}));
  EXPECT_EQ(Sink().Count(L"Failed to update collection"), 0u);
  collection->ReleaseAll();
  collection->Stop(true);
}

TEST_F(CollectionBaseTest, StopSyncDuringUpdateWaitsAndEndsStopped)
{
  m_collection->Script({Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(1));
  StopSyncDuringHeldUpdate();
  // The update's pool procedure has let go of the collection too: dropping the last reference
  // now destroys it (and whatever session it holds) on this thread.
  EXPECT_EQ(m_collection.use_count(), 1);
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Stopped);
  EXPECT_EQ(m_collection->Internal(), 0);
  EXPECT_EQ(Sink().Count(L"Stop requested, sync: true. Current state: Starting; internal state: Running"), 1u);
  EXPECT_EQ(Sink().Count(L"Waiting for current task..."), 1u);
  EXPECT_EQ(Sink().Count(L"Task finished in "), 1u);
  EXPECT_EQ(Sink().Count(L"] Interrupted"), 1u);
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopping,
                                                         ICollectionTypes::Stopped}));
  // The waiting time is printed with three significant digits.
  for (const auto& line : Sink().Lines())
  {
    const auto at = line.text.find(L"Task finished in ");
    if (at != std::wstring::npos)
    {
      const std::wstring number = line.text.substr(at + 17);
      EXPECT_NO_THROW((void)std::stod(number)) << kelda::ToUtf8(line.text);
      EXPECT_LE(number.size(), 9u) << kelda::ToUtf8(line.text);
    }
  }
}

TEST_F(CollectionBaseTest, StopBetweenUpdatesWithdrawsTheScheduledOne)
{
  m_collection->SetUpdatePeriod(3600);
  m_collection->Script({Step::Succeed});
  m_collection->Run();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running));
  m_collection->Stop(false);
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Stopped));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running,
                                                         ICollectionTypes::Stopping, ICollectionTypes::Stopped}));
  EXPECT_EQ(m_collection->Calls(), 1);
  // A stopped collection starts again.
  m_collection->Script({Step::Succeed});
  m_collection->Run();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running, 2));
  EXPECT_EQ(m_collection->Calls(), 2);
}

TEST_F(CollectionBaseTest, FailingUpdateSetsErrorKeepsScheduleAndNextGoodOneNotifiesRunning)
{
  m_collection->SetUpdatePeriod(0);
  m_collection->Script({Step::Fail, Step::Succeed, Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(3));
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Error,
                                                         ICollectionTypes::Running}));
  EXPECT_EQ(m_subscriber->Changes()[1].description, L"Update broke");
  const std::wstring failed = L"Failed to update collection '" + [&] {
    wchar_t text[39] = {};
    StringFromGUID2(m_collection->GetId(), text, 39);
    return std::wstring(text);
  }() + L"'";
  EXPECT_EQ(Sink().Count(failed), 1u);
  EXPECT_EQ(Sink().Count(L"New state: Error (current internal state: Running) Update broke"), 1u);
  for (const auto& line : Sink().Lines())
  {
    if (line.text.find(L"Failed to update collection") != std::wstring::npos)
    {
      EXPECT_EQ(line.level, ELogLevel::Error);
    }
  }
}

TEST_F(CollectionBaseTest, RunThatCannotScheduleSetsErrorRethrowsAndCanBeRetried)
{
  m_pool->shutdown();
  EXPECT_THROW(m_collection->Run(), CHResultException);
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Error);
  EXPECT_EQ(m_collection->Internal(), 0);
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Error}));
  EXPECT_FALSE(m_subscriber->Changes()[1].description.empty());
  // Back in Stopped internally: a second Run is not ignored, it tries (and fails) again.
  EXPECT_THROW(m_collection->Run(), CHResultException);
  EXPECT_EQ(m_subscriber->States().size(), 4u);
  EXPECT_EQ(m_collection->Calls(), 0);
}

TEST_F(CollectionBaseTest, RunFromASubscriberThatCannotScheduleEndsInErrorAfterItsStarting)
{
  ASSERT_TRUE(FirstUpdateOverOnOneWorker({Step::Succeed}));
  auto restarter = std::make_shared<CRunOnStopped>();
  restarter->collection = m_collection;
  restarter->beforeRun = [this] { m_pool->shutdown(); };
  m_collection->Subscribe(restarter);
  // The run started from the subscriber is scheduled once its Starting is out, after Run has
  // returned: the failure can only be reported as the run's end.
  m_collection->Stop(false);
  EXPECT_FALSE(restarter->threw);
  EXPECT_EQ(m_collection->GetState(), ICollectionTypes::Error);
  EXPECT_EQ(m_collection->Internal(), 0);
  std::vector<States> expected = runStoppedAndRunAgain;
  expected.back() = ICollectionTypes::Error;
  EXPECT_EQ(m_subscriber->States(), expected);
  EXPECT_FALSE(m_subscriber->Changes().back().description.empty());
  EXPECT_EQ(Sink().Count(L"Update task scheduling failed"), 1u);
  EXPECT_EQ(m_collection->Calls(), 1);
}

TEST_F(CollectionBaseTest, ReschedulingThatFailsWithCancelledStopsTheCollection)
{
  // The pool shuts down inside the update: the reschedule then fails with 0x800704C7.
  m_collection->SetHook([this] { m_pool->shutdown(); });
  m_collection->Script({Step::CallHook});
  m_collection->Run();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Stopped));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running,
                                                         ICollectionTypes::Stopped}));
  EXPECT_EQ(Sink().Count(L"Update task scheduling failed"), 1u);
  EXPECT_EQ(m_collection->Internal(), 0);
  EXPECT_EQ(m_collection->Calls(), 1);
}

TEST_F(CollectionBaseTest, TwoFailuresNotifyErrorTwice)
{
  m_collection->SetUpdatePeriod(0);
  m_collection->Script({Step::Fail, Step::Fail, Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(3));
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Error, 2));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Error,
                                                         ICollectionTypes::Error}));
  EXPECT_EQ(Sink().Count(L"New state: Error"), 2u);
}

TEST_F(CollectionBaseTest, TwoGoodUpdatesNotifyRunningOnce)
{
  m_collection->SetUpdatePeriod(0);
  m_collection->Script({Step::Succeed, Step::Succeed, Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(3));
  ASSERT_TRUE(Sink().WaitFor(L"Update finished", 2));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running}));
  EXPECT_EQ(Sink().Count(L"New state: Running"), 1u);
}

TEST_F(CollectionBaseTest, CancelledHResultStopsInsteadOfError)
{
  m_collection->SetUpdatePeriod(0);
  m_collection->Script({Step::FailCancelled});
  m_collection->Run();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Stopped));
  ASSERT_TRUE(Sink().WaitFor(L"Update finished"));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopped}));
  EXPECT_EQ(m_collection->Internal(), 0);
  EXPECT_EQ(Sink().Count(L"Failed to update collection"), 1u);
  // Nothing was rescheduled: a new Run is accepted and gives the second call.
  m_collection->SetUpdatePeriod(3600);
  m_collection->Script({Step::Succeed});
  m_collection->Run();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Running));
  EXPECT_EQ(m_collection->Calls(), 2);
}

TEST_F(CollectionBaseTest, InterruptionAtALogCallStops)
{
  m_collection->Script({Step::BlockThenLog});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(1));
  // The parent's cancellation reaches the run's child token; the log call inside the update is
  // the interruption point.
  m_parent->cancel();
  m_collection->Release();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Stopped));
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopped}));
  ASSERT_TRUE(Sink().WaitFor(L"Update finished"));
  EXPECT_EQ(Sink().Count(L"] Interrupted"), 1u);
  EXPECT_EQ(Sink().Count(L"Failed to update collection"), 0u);
  EXPECT_EQ(m_collection->Internal(), 0);
}

TEST_F(CollectionBaseTest, CancelledParentBeforeRunStopsAtTheFirstTokenTest)
{
  m_parent->cancel();
  m_collection->Run();
  ASSERT_TRUE(m_subscriber->WaitFor(ICollectionTypes::Stopped));
  EXPECT_EQ(m_collection->Calls(), 0);
  EXPECT_EQ(m_subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopped}));
}

TEST_F(CollectionBaseTest, OverlappingUpdateIsCancelled)
{
  m_collection->Script({Step::Block});
  m_collection->Run();
  ASSERT_TRUE(m_collection->WaitCalls(1));
  m_collection->UpdateNow();
  EXPECT_EQ(Sink().Count(L"Update cancelled because previous update is in progress"), 1u);
  EXPECT_EQ(m_collection->Calls(), 1);
}

TEST_F(CollectionBaseTest, RecordsReachEverySubscriberWithoutCopies)
{
  class CEmptyRecord : public collector::ni::IRecord
  {
  public:
    collector::ni::IKey* GetKey() override { return nullptr; }
    collector::ni::IField* FindField(std::wstring_view) override { return nullptr; }
    collector::ni::IField* FindField(const tstring&) override { return nullptr; }
    collector::ni::IField* GetField(std::wstring_view) override { return nullptr; }
  };
  auto second = std::make_shared<CRecordingSubscriber>();
  m_collection->Subscribe(second);
  const std::vector<std::shared_ptr<collector::ni::IRecord>> batch{std::make_shared<CEmptyRecord>(),
                                                                   std::make_shared<CEmptyRecord>()};
  m_collection->Publish(batch);
  for (const auto& subscriber : {m_subscriber, second})
  {
    EXPECT_EQ(subscriber->RecordCalls(), 1);
    EXPECT_EQ(subscriber->RecordCollection(), m_collection->GetId());
    EXPECT_EQ(subscriber->Records(), batch);
  }
  // One record alone, as the event collection hands them over.
  m_collection->Publish({&batch[0], 1});
  EXPECT_EQ(second->Records(), (std::vector<std::shared_ptr<collector::ni::IRecord>>{batch[0]}));
}

TEST_F(CollectionBaseTest, FailingSubscriberDoesNotStopOthers)
{
  class CThrowingSubscriber : public CRecordingSubscriber
  {
  public:
    void OnStateChanged(const GUID&, const ICollectionTypes::IState&) override { throw std::runtime_error("no"); }
  };
  auto later = std::make_shared<CRecordingSubscriber>();
  m_collection->Subscribe(std::make_shared<CThrowingSubscriber>());
  m_collection->Subscribe(later);
  m_collection->Script({Step::Succeed});
  m_collection->Run();
  ASSERT_TRUE(later->WaitFor(ICollectionTypes::Running));
  EXPECT_EQ(later->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Running}));
}

TEST_F(CollectionBaseTest, StopFromInsideItsOwnUpdateDoesNotWaitForItself)
{
  class CSelfStopping : public CScriptedCollection
  {
  public:
    using CScriptedCollection::CScriptedCollection;

  protected:
    void updateImpl() override { Stop(true); }
  };
  auto collection = std::make_shared<CSelfStopping>(m_root, *m_pool, m_parent, nullptr, nullptr, nullptr);
  auto subscriber = std::make_shared<CRecordingSubscriber>();
  collection->Subscribe(subscriber);
  collection->Run();
  // The update runs with the internal state Running, so its own Stop takes effect; the update
  // then meets its token test instead of waiting for itself.
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Stopped));
  EXPECT_EQ(subscriber->States(), (std::vector<States>{ICollectionTypes::Starting, ICollectionTypes::Stopping,
                                                       ICollectionTypes::Stopped}));
  EXPECT_EQ(Sink().Count(L"Waiting for current task..."), 0u);
  collection->Stop(true);
  EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
}
