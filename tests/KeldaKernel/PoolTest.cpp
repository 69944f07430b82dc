#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Exceptions.h"
#include "KeldaKernel/Pool.h"

#include "TestSupport/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <stdexcept>
#include <thread>

namespace
{
using Clock = std::chrono::steady_clock;

boost::xtime After(std::chrono::milliseconds delay)
{
  boost::xtime time{};
  time.sec = static_cast<boost::xtime::xtime_sec_t>(delay.count() / 1000);
  time.nsec = static_cast<boost::xtime::xtime_nsec_t>((delay.count() % 1000) * 1000000);
  return time;
}

// A one-shot signal between threads.
struct Gate
{
  std::promise<void> promise;
  std::shared_future<void> future = promise.get_future().share();
  void open() { promise.set_value(); }
  void wait() const { future.wait(); }
};
} // namespace

TEST(Pool, RunsProcedureOnAWorker)
{
  pool workers(2);
  EXPECT_EQ(workers.thread_count(), 2u);
  std::thread::id ranOn;
  auto task = workers.dispatch_proc([&] { ranOn = std::this_thread::get_id(); });
  task.halt(false, false);
  EXPECT_TRUE(task.finished());
  EXPECT_NE(ranOn, std::thread::id());
  EXPECT_NE(ranOn, std::this_thread::get_id());
}

TEST(Pool, ZeroThreadsMeansOneOrMore)
{
  pool workers(0);
  EXPECT_GE(workers.thread_count(), 1u);
}

TEST(Pool, EmptyTaskCountsAsFinished)
{
  pool::tp_task task;
  EXPECT_TRUE(task.empty());
  EXPECT_TRUE(task.finished());
  task.halt(true, false);
}

TEST(Pool, EmptyProcedureIsRejected)
{
  pool workers(1);
  try
  {
    workers.dispatch_proc(pool::proc());
    FAIL() << "no exception";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(error.hresult(), E_INVALIDARG);
  }
}

TEST(Pool, DeadlineIsHonoured)
{
  pool workers(2);
  const auto delay = std::chrono::milliseconds(150);
  const auto dispatched = Clock::now();
  Clock::time_point started;
  auto task = workers.dispatch_proc([&] { started = Clock::now(); }, After(delay));
  task.halt(false, false);
  EXPECT_GE(started - dispatched, delay);
}

TEST(Pool, TaskWithDistantDeadlineHasNotRunYet)
{
  pool workers(1);
  std::atomic<bool> ran{false};
  auto task = workers.dispatch_proc([&] { ran = true; }, After(std::chrono::minutes(10)));
  // A task that only waits for its deadline is neither finished nor run...
  EXPECT_FALSE(task.finished());
  // ...while an immediate task dispatched after it runs first.
  auto now = workers.dispatch_proc([] {});
  now.halt(false, false);
  EXPECT_FALSE(ran);
  task.halt(true, true);
  EXPECT_TRUE(task.finished());
}

TEST(Pool, EarlierDeadlineRunsFirst)
{
  pool workers(1);
  std::mutex lock;
  std::string order;
  auto late = workers.dispatch_proc([&] { const std::lock_guard g(lock); order += "late"; }, After(std::chrono::milliseconds(400)));
  auto early = workers.dispatch_proc([&] { const std::lock_guard g(lock); order += "early,"; }, After(std::chrono::milliseconds(1)));
  late.halt(false, false);
  early.halt(false, false);
  EXPECT_EQ(order, "early,late");
}

TEST(Pool, WithdrawnBeforeDeadlineNeverRunsAndReleasesProcedure)
{
  pool workers(1);
  std::atomic<bool> ran{false};
  auto captured = std::make_shared<int>(7);
  std::weak_ptr<int> watch = captured;
  auto task = workers.dispatch_proc([&ran, captured] { ran = true; }, After(std::chrono::minutes(10)));
  captured.reset();
  task.halt(true, false);
  EXPECT_TRUE(task.finished());
  EXPECT_TRUE(watch.expired());
  // Whatever was queued before now has run; the withdrawn task has not.
  workers.dispatch_proc([] {}).halt(false, false);
  EXPECT_FALSE(ran);
}

TEST(Pool, WithdrawnWhileQueuedBehindBusyWorkerNeverRuns)
{
  pool workers(1);
  Gate entered, release;
  auto busy = workers.dispatch_proc([&] {
    entered.open();
    release.wait();
  });
  entered.wait();
  std::atomic<bool> ran{false};
  auto queued = workers.dispatch_proc([&] { ran = true; });
  queued.halt(true, true);
  EXPECT_TRUE(queued.finished());
  release.open();
  busy.halt(false, false);
  workers.dispatch_proc([] {}).halt(false, false);
  EXPECT_FALSE(ran);
}

TEST(Pool, WithdrawDoesNotStopARunningTaskButWaitsForIt)
{
  pool workers(2);
  Gate entered, release;
  std::atomic<bool> ended{false};
  auto task = workers.dispatch_proc([&] {
    entered.open();
    release.wait();
    ended = true;
  });
  entered.wait();
  EXPECT_FALSE(task.finished());
  std::thread opener([&] { release.open(); });
  task.halt(true, false);
  EXPECT_TRUE(ended);
  EXPECT_TRUE(task.finished());
  opener.join();
}

TEST(Pool, HaltWithoutWaitReturnsWhileTaskRuns)
{
  pool workers(1);
  Gate entered, release;
  auto task = workers.dispatch_proc([&] {
    entered.open();
    release.wait();
  });
  entered.wait();
  task.halt(false, true);
  EXPECT_FALSE(task.finished());
  release.open();
  task.halt(false, false);
  EXPECT_TRUE(task.finished());
}

TEST(Pool, TaskMayHaltItselfWithoutDeadlock)
{
  pool workers(1);
  Gate published;
  auto handle = std::make_shared<pool::tp_task>();
  std::atomic<bool> returned{false};
  *handle = workers.dispatch_proc([&, handle] {
    published.wait();
    handle->halt(true, false);
    returned = true;
  });
  published.open();
  pool::tp_task copy = *handle;
  copy.halt(false, false);
  EXPECT_TRUE(returned);
}

TEST(Pool, ExceptionInProcedureIsLoggedAndWorkerSurvives)
{
  natc_test::CLoggerCapture capture;
  pool workers(1);
  workers.dispatch_proc([] { throw std::runtime_error("boom"); }).halt(false, false);
  workers.dispatch_proc([] { KELDA_THROW(CHResultException(E_ACCESSDENIED)); }).halt(false, false);
  workers.dispatch_proc([] { throw 42; }).halt(false, false);
  std::atomic<bool> ran{false};
  workers.dispatch_proc([&] { ran = true; }).halt(false, false);
  EXPECT_TRUE(ran);
  EXPECT_TRUE(capture.Sink().WaitFor(L"Exception escaped a pool task: boom (0x80004005)"));
  EXPECT_TRUE(capture.Sink().WaitFor(L"Access is denied. (0x80070005)"));
  EXPECT_TRUE(capture.Sink().WaitFor(L"Exception of unknown type escaped a pool task"));
}

TEST(Pool, TasksDoNotInheritATokenFromAnotherTask)
{
  pool workers(1);
  const auto cancelled = create_cancellation();
  cancelled->cancel();
  std::shared_ptr<ICancellationToken> seen = cancelled;
  pool::tp_task nested;
  workers.dispatch_proc([&] {
    const interruption_scope scope(cancelled);
    nested = workers.dispatch_proc([&] { seen = current_cancellation(); });
  }).halt(false, false);
  nested.halt(false, false);
  EXPECT_EQ(seen, nullptr);
}

TEST(Pool, ShutdownWithdrawsWaitingTasksAndRefusesNewOnes)
{
  pool workers(2);
  std::atomic<bool> ran{false};
  auto waiting = workers.dispatch_proc([&] { ran = true; }, After(std::chrono::minutes(10)));
  pool copy = workers;
  copy.shutdown();
  EXPECT_TRUE(waiting.finished());
  waiting.halt(false, false);
  EXPECT_FALSE(ran);
  try
  {
    workers.dispatch_proc([] {});
    FAIL() << "no exception";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(error.hresult(), HRESULT_FROM_WIN32(ERROR_CANCELLED));
  }
  // A second shutdown is harmless.
  workers.shutdown();
}

TEST(Pool, LastHandleMayBeDroppedInsideATask)
{
  pool::tp_task task;
  Gate release;
  {
    pool workers(1);
    task = workers.dispatch_proc([copy = std::optional<pool>(workers), &release]() mutable {
      release.wait();
      // Dropping the last handle from a worker must neither deadlock nor crash.
      copy.reset();
    });
  }
  release.open();
  task.halt(false, false);
  EXPECT_TRUE(task.finished());
}

TEST(Pool, ManyTasksFromManyThreadsAllRun)
{
  pool workers(2);
  std::atomic<int> count{0};
  constexpr int perThread = 500;
  std::vector<std::thread> producers;
  producers.reserve(4);
  std::vector<pool::tp_task> tasks[4];
  for (int t = 0; t < 4; ++t)
    producers.emplace_back([&, t] {
      for (int i = 0; i < perThread; ++i)
        tasks[t].push_back(workers.dispatch_proc([&] { ++count; }, After(std::chrono::milliseconds(i % 3))));
    });
  for (auto& producer : producers)
    producer.join();
  for (auto& list : tasks)
    for (auto& task : list)
      task.halt(false, false);
  EXPECT_EQ(count, 4 * perThread);
}
