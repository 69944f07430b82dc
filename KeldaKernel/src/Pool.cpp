// The thread pool over Boost.Asio: one io_context run by a fixed set of workers. A task with
// a deadline waits on its own steady_timer, so thousands of periodic tasks cost a timer-heap
// entry each and no thread. Each task has a small shared state that tp_task reads and halts.
#include "KeldaKernel/Pool.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Exceptions.h"
#include "KeldaKernel/Logger.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace
{
enum class TaskStatus
{
  Pending,
  Running,
  Done,
  Withdrawn,
};

// What a pool's tasks share with it: the io_context while the pool runs (null once it is
// shut down) and the lock that keeps shutdown from pulling it away under a dispatch or a halt.
struct PoolContext
{
  std::shared_mutex lock;
  std::shared_ptr<boost::asio::io_context> io;
};

struct TaskState
{
  std::mutex lock;
  std::condition_variable ended;
  std::atomic<TaskStatus> status{TaskStatus::Pending};
  pool::proc procedure;
  std::thread::id runner;
  // The timer the task waits on, while it waits (owned by the pending handler).
  boost::asio::steady_timer* timer = nullptr;
  std::shared_ptr<PoolContext> context;
};

void LogEscapedException(const std::exception& error) noexcept
{
  try
  {
    // Cancellation reaching the top of a task is the normal way to stop it.
    const bool interrupted = dynamic_cast<const CInterruptedException*>(&error) != nullptr;
    CKeldaLogger::instance().writeExceptionImpl(interrupted ? ELogLevel::Debug : ELogLevel::Error, error,
                                                BOOST_CURRENT_FUNCTION, __FILE__, __LINE__, true,
                                                L"Exception escaped a pool task");
  }
  catch (...)
  {
  }
}

// A pending handler was destroyed without running (the pool shut down): the task is withdrawn.
void Abandon(TaskState& task) noexcept
{
  pool::proc dropped;
  {
    const std::lock_guard guard(task.lock);
    task.timer = nullptr;
    if (task.status != TaskStatus::Pending)
      return;
    task.status = TaskStatus::Withdrawn;
    dropped = std::move(task.procedure);
  }
  task.ended.notify_all();
}

void Run(const std::shared_ptr<TaskState>& task) noexcept
{
  pool::proc procedure;
  {
    const std::lock_guard guard(task->lock);
    task->timer = nullptr;
    if (task->status != TaskStatus::Pending)
      return;
    task->status = TaskStatus::Running;
    task->runner = std::this_thread::get_id();
    procedure = std::move(task->procedure);
  }
  {
    // No token leaks from one task into the next; the procedure sets its own scope.
    const interruption_scope scope(nullptr);
    try
    {
      procedure();
    }
    catch (const std::exception& error)
    {
      LogEscapedException(error);
    }
    catch (...)
    {
      try
      {
        CKeldaLogger::instance().writeImpl(ELogLevel::Error, L"Exception of unknown type escaped a pool task");
      }
      catch (...)
      {
      }
    }
    // What the procedure captured is released before anyone is told it has ended.
    procedure = nullptr;
  }
  {
    const std::lock_guard guard(task->lock);
    task->status = TaskStatus::Done;
  }
  task->ended.notify_all();
}

// The completion handler of one task. Members are destroyed in reverse order: the task
// forgets the timer before the timer goes.
class TaskHandler
{
public:
  TaskHandler(std::unique_ptr<boost::asio::steady_timer> timer, std::shared_ptr<TaskState> task)
    : m_timer(std::move(timer)), m_task(std::move(task))
  {
  }
  TaskHandler(TaskHandler&&) noexcept = default;
  TaskHandler& operator=(TaskHandler&&) = delete;
  ~TaskHandler()
  {
    if (m_task)
      Abandon(*m_task);
  }

  void operator()() { Run(std::exchange(m_task, nullptr)); }
  void operator()(const boost::system::error_code&) { Run(std::exchange(m_task, nullptr)); }

private:
  std::unique_ptr<boost::asio::steady_timer> m_timer;
  std::shared_ptr<TaskState> m_task;
};

std::shared_ptr<PoolContext> MakeContext(unsigned threads)
{
  auto context = std::make_shared<PoolContext>();
  context->io = std::make_shared<boost::asio::io_context>(static_cast<int>(threads));
  return context;
}

void RunWorker(boost::asio::io_context& io) noexcept
{
  for (;;)
  {
    try
    {
      io.run();
      return;
    }
    catch (...)
    {
      // Handlers catch everything themselves; keep the worker alive regardless.
    }
  }
}
} // namespace

struct pool::tp_task::State : TaskState
{
};

struct pool::Impl
{
  explicit Impl(unsigned threads)
    : count(threads != 0 ? threads : std::max(1u, std::thread::hardware_concurrency())),
      context(MakeContext(count)), work(context->io->get_executor())
  {
    workers.reserve(count);
    // Each worker keeps the io_context alive until it leaves run(), so a pool may even be
    // released from inside one of its own tasks.
    for (unsigned i = 0; i < count; ++i)
      workers.emplace_back([io = context->io] { RunWorker(*io); });
  }

  ~Impl() { Shutdown(); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void Shutdown() noexcept
  {
    const std::lock_guard once(shutdownLock);
    std::shared_ptr<boost::asio::io_context> io;
    {
      const std::unique_lock guard(context->lock);
      io = std::move(context->io);
    }
    if (!io)
      return;
    work.reset();
    io->stop();
    for (auto& worker : workers)
    {
      if (worker.get_id() == std::this_thread::get_id())
        worker.detach();
      else if (worker.joinable())
        worker.join();
    }
    // Dropping the io_context destroys the handlers that never ran, which withdraws their tasks.
    io.reset();
  }

  const unsigned count;
  std::mutex shutdownLock;
  std::shared_ptr<PoolContext> context;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work;
  std::vector<std::thread> workers;
};

pool::pool(unsigned threads) : m_impl(std::make_shared<Impl>(threads)) {}

pool::~pool() = default;

unsigned pool::thread_count() const noexcept { return m_impl->count; }

void pool::shutdown() { m_impl->Shutdown(); }

pool::tp_task pool::dispatch_proc(proc procedure, std::optional<boost::xtime> deadline) const
{
  if (!procedure)
    KELDA_THROW(CHResultException(E_INVALIDARG, L"The pool procedure is empty"));
  auto task = std::make_shared<tp_task::State>();
  task->procedure = std::move(procedure);
  task->context = m_impl->context;
  std::chrono::nanoseconds delay{0};
  if (deadline)
    delay = std::chrono::seconds(deadline->sec) + std::chrono::nanoseconds(deadline->nsec);

  PoolContext& context = *m_impl->context;
  const std::shared_lock guard(context.lock);
  if (!context.io)
    KELDA_THROW(CHResultException(HRESULT_FROM_WIN32(ERROR_CANCELLED), L"The thread pool is shut down"));
  if (delay <= std::chrono::nanoseconds::zero())
  {
    boost::asio::post(*context.io, TaskHandler(nullptr, task));
  }
  else
  {
    auto timer = std::make_unique<boost::asio::steady_timer>(*context.io, delay);
    auto* waiting = timer.get();
    // Set before the wait is queued: the handler may run on a worker at once.
    task->timer = waiting;
    waiting->async_wait(TaskHandler(std::move(timer), task));
  }
  return tp_task(std::move(task));
}

void pool::tp_task::halt(bool withdraw, bool noWait)
{
  if (!m_state)
    return;
  TaskState& task = *m_state;
  proc dropped;
  std::unique_lock guard(task.lock);
  if (withdraw && task.status == TaskStatus::Pending)
  {
    task.status = TaskStatus::Withdrawn;
    dropped = std::move(task.procedure);
    // Frees the timer-heap entry now rather than at the deadline; a pool that is shutting
    // down destroys the pending handler itself.
    if (task.timer != nullptr)
    {
      const std::shared_lock running(task.context->lock);
      if (task.context->io)
        task.timer->cancel();
    }
    task.ended.notify_all();
  }
  // A task halting itself would wait for its own end forever.
  const bool self = task.status == TaskStatus::Running && task.runner == std::this_thread::get_id();
  if (!noWait && !self)
    task.ended.wait(guard, [&] { return task.status == TaskStatus::Done || task.status == TaskStatus::Withdrawn; });
  guard.unlock();
}

bool pool::tp_task::finished() const noexcept
{
  if (!m_state)
    return true;
  const TaskStatus status = m_state->status.load();
  return status == TaskStatus::Done || status == TaskStatus::Withdrawn;
}
