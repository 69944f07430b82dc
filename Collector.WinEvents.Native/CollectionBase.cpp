#include "CollectionBase.h"

#include "UpdateSchedule.h"

#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IUser.h"
#include "KeldaKernel/Exceptions.h"
#include "Platform/Windows.h"

#include <chrono>
#include <fmt/xchar.h>

namespace collector::ni::impl
{
namespace
{
// A cancelled Windows operation: a stop, not an error.
constexpr HRESULT cancelledHResult = HRESULT_FROM_WIN32(ERROR_CANCELLED);

// The collection whose update runs on this thread, so that a Stop(true) from inside its own
// update does not wait for itself.
thread_local const void* t_updatingCollection = nullptr;

tstring GuidText(const GUID& id)
{
  wchar_t text[39] = {};
  StringFromGUID2(id, text, 39);
  return text;
}

tstring DescriptionOf(const std::exception& error)
{
  try
  {
    return get_description(error);
  }
  catch (const std::exception&)
  {
    return {};
  }
}
} // namespace

// Ends the update body whatever the path: logs "Update finished", clears the in-progress flag
// and completes a stop that arrived after the update's last token test. Scheduling calls
// Finish before it dispatches the successor, which may start at once on another worker and
// must not find the flag still set.
class CCollectionBase::CUpdateEnd
{
public:
  explicit CUpdateEnd(CCollectionBase& owner) noexcept : m_owner(owner) {}
  ~CUpdateEnd() { Finish(); }
  CUpdateEnd(const CUpdateEnd&) = delete;
  CUpdateEnd& operator=(const CUpdateEnd&) = delete;

  void Finish() noexcept
  {
    if (m_finished)
    {
      return;
    }
    m_finished = true;
    try
    {
      m_owner.m_log->Debug(L"Update finished");
    }
    catch (...)
    {
    }
    m_owner.m_updateInProgress.store(0);
    m_owner.m_updateInProgress.notify_all();
    m_owner.finishStop();
  }

private:
  CCollectionBase& m_owner;
  bool m_finished = false;
};

// The pool handle is taken by value, as every collection keeps its own copy of it.
CCollectionBase::CCollectionBase(const std::shared_ptr<CLog>& log, pool threadPool, // NOLINT(performance-*)
                                 const std::shared_ptr<ICancellationToken>& token, const std::shared_ptr<IHost>& host,
                                 const std::shared_ptr<IUser>& user, const std::shared_ptr<IClass>& cls)
  : m_updatePeriod(MakeUpdatePeriod(60)),
    m_name(cls ? cls->GetName() : tstring()),
    m_pool(threadPool),
    m_parentToken(token),
    m_host(host),
    m_user(user),
    m_class(cls)
{
  m_log = std::make_shared<CLog>(log, fmt::format(L"[C:{}:{}]", host ? host->GetName() : tstring(L"null"), m_name));
  const RPC_STATUS status = UuidCreate(&m_id);
  if (status != RPC_S_OK)
  {
    KELDA_THROW(CWin32Exception(static_cast<DWORD>(status)));
  }
}

CCollectionBase::~CCollectionBase()
{
  // Scheduled updates hold only a weak reference, so a waiting one would find nothing to run;
  // withdraw it anyway so that it does not occupy the pool's timer.
  withdrawUpdate();
}

GUID CCollectionBase::GetId() const
{
  return m_id;
}

tstring CCollectionBase::GetName() const
{
  return m_name;
}

ICollectionTypes::States CCollectionBase::GetState() const
{
  return m_state.load();
}

std::shared_ptr<IClass> CCollectionBase::GetClass() const
{
  return m_class;
}

void CCollectionBase::SetUser(const std::shared_ptr<IUser>& user)
{
  m_user.store(user);
  m_user.notify_all();
}

void CCollectionBase::SetUpdatePeriod(int seconds)
{
  const COleDateTimeSpan period = MakeUpdatePeriod(seconds);
  const std::lock_guard lock(m_periodLock);
  m_updatePeriod = period;
}

COleDateTimeSpan CCollectionBase::updatePeriod() const
{
  const std::lock_guard lock(m_periodLock);
  return m_updatePeriod;
}

const wchar_t* CCollectionBase::StateWord(States state) noexcept
{
  switch (state)
  {
  case Error:
    return L"Error";
  case Starting:
    return L"Starting";
  case Running:
    return L"Running";
  case Stopping:
    return L"Stopping";
  case Stopped:
    return L"Stopped";
  }
  return L"Unknown";
}

const wchar_t* CCollectionBase::InternalStateWord(std::int32_t state) noexcept
{
  switch (state)
  {
  case InternalStopped:
    return L"Stopped";
  case InternalStarting:
    return L"Starting";
  case InternalRunning:
    return L"Running";
  default:
    return L"Stopping";
  }
}

void CCollectionBase::setState(States state, const tstring& message)
{
  const States previous = m_state.exchange(state);
  // Repeated Running or Stopped are silent; every Error is reported again.
  if (previous == state && state != Error)
  {
    return;
  }
  m_log->Info(fmt::format(L"New state: {} (current internal state: {}) {}", StateWord(state),
                          InternalStateWord(m_internalState.load()), message));
  const CState changed(state, message);
  const GUID id = GetId();
  notify([&](IKeldaSubscriber& subscriber) {
    if (auto* typed = dynamic_cast<ISubscriber*>(&subscriber))
    {
      // One failing subscriber must not keep the others from hearing of the change.
      try
      {
        typed->OnStateChanged(id, changed);
      }
      catch (const std::exception& error)
      {
        m_log->Error(error, L"Subscriber failed to take the state change");
      }
    }
    return false;
  });
}

void CCollectionBase::notifyRecords(Records records)
{
  const GUID id = GetId();
  notify([&](IKeldaSubscriber& subscriber) {
    if (auto* typed = dynamic_cast<ISubscriber*>(&subscriber))
    {
      typed->OnRecords(id, records);
    }
    return false;
  });
}

void CCollectionBase::Run()
{
  m_log->Info(fmt::format(L"Start requested. Current state: {}; internal state: {}", StateWord(m_state.load()),
                          InternalStateWord(m_internalState.load())));
  std::int32_t expected = InternalStopped;
  // A collection that is starting, running or stopping ignores a second start.
  if (!m_internalState.compare_exchange_strong(expected, InternalStarting))
  {
    return;
  }
  try
  {
    setState(Starting);
    m_cancellation.store(create_child_cancellation(m_parentToken));
    dispatchUpdate(std::nullopt);
  }
  catch (const std::exception& error)
  {
    m_internalState.store(InternalStopped);
    setState(Error, DescriptionOf(error));
    throw;
  }
}

pool::tp_task CCollectionBase::dispatchUpdate(std::optional<boost::xtime> deadline)
{
  auto promise = std::make_shared<boost::promise<void>>();
  auto done = promise->get_future();
  std::weak_ptr<CCollectionBase> weakSelf = weak_from_this();
  auto procedure = [weakSelf, promise]() {
    try
    {
      if (const auto self = weakSelf.lock())
      {
        struct CActive
        {
          std::atomic<std::int32_t>& count;
          explicit CActive(std::atomic<std::int32_t>& active) : count(active) { count.fetch_add(1); }
          ~CActive()
          {
            count.fetch_sub(1);
            count.notify_all();
          }
          CActive(const CActive&) = delete;
          CActive& operator=(const CActive&) = delete;
        } const active(self->m_activeUpdates);
        self->update();
      }
      promise->set_value();
    }
    catch (...)
    {
      // update handles its own failures; this only keeps anything else off the worker.
      promise->set_exception(boost::current_exception());
    }
  };
  // Held while dispatching so that an update which starts at once and schedules its successor
  // cannot have that successor overwritten by this older task.
  const std::lock_guard lock(m_taskLock);
  pool::tp_task task = m_pool.dispatch_proc(std::move(procedure), deadline);
  m_currentTask = CCurrentTask{std::move(done), task};
  return task;
}

pool::tp_task CCollectionBase::currentTask() const
{
  const std::lock_guard lock(m_taskLock);
  return m_currentTask.task;
}

void CCollectionBase::withdrawUpdate() noexcept
{
  try
  {
    if (const auto cancellation = m_cancellation.load())
    {
      cancellation->cancel();
    }
    pool::tp_task task = currentTask();
    if (!task.finished())
    {
      task.halt(true, true);
    }
  }
  catch (...)
  {
    // Stopping goes on regardless: a collection that cannot withdraw its update still stops.
  }
}

void CCollectionBase::update()
{
  for (std::int32_t idle = 0; !m_updateInProgress.compare_exchange_strong(idle, 1); idle = 0)
  {
    // The first update of a new run may meet the previous run's last update while that one
    // finishes its bookkeeping (the state was already reset, the flag not yet): it waits for
    // it rather than leave the new run in Starting for good.
    if (m_internalState.load() != InternalStarting)
    {
      m_log->Info(L"Update cancelled because previous update is in progress");
      return;
    }
    m_updateInProgress.wait(1);
  }
  CUpdateEnd end(*this);
  const void* const outerCollection = t_updatingCollection;
  t_updatingCollection = this;
  struct CRestore
  {
    const void* previous;
    ~CRestore() { t_updatingCollection = previous; }
  } const restore{outerCollection};

  try
  {
    m_log->Debug(fmt::format(L"Update started. Current state: {}; internal state: {}", StateWord(m_state.load()),
                             InternalStateWord(m_internalState.load())));
  }
  catch (...)
  {
  }

  COleDateTimeEx start;
  start.SetStatus(COleDateTimeEx::null);
  const COleDateTimeSpan period = updatePeriod();
  HRESULT hr = S_OK;
  tstring description;
  try
  {
    const std::shared_ptr<ICancellation> cancellation = m_cancellation.load();
    if (!cancellation)
    {
      KELDA_THROW(CInterruptedException());
    }
    std::int32_t state = InternalStarting;
    if (!m_internalState.compare_exchange_strong(state, InternalRunning) && state != InternalRunning)
    {
      m_log->Info(L"Collection is stopping. Cancelling");
      cancellation->cancel();
    }
    cancellation->throw_if_cancelled();
    start = COleDateTimeEx::GetCurrentUtcTime();
    {
      // Makes the run's token current, so that every log call of the pass can stop it.
      const interruption_scope scope(cancellation);
      updateImpl();
    }
    cancellation->throw_if_cancelled();
    setState(Running);
  }
  catch (const CInterruptedException& error)
  {
    m_log->Error(error, L"Interrupted");
    m_internalState.store(InternalStopped);
    setState(Stopped);
    return;
  }
  catch (const std::exception& error)
  {
    m_log->Error(error, fmt::format(L"Failed to update collection '{}'", GuidText(m_id)));
    hr = get_hresult(error);
    description = DescriptionOf(error);
    if (hr == cancelledHResult)
    {
      m_internalState.store(InternalStopped);
      setState(Stopped);
      return;
    }
  }
  catch (...)
  {
    // Not of the std::exception kind: still an update failure, never an escape.
    const CKeldaException unknown(L"Unknown exception");
    m_log->Error(unknown, fmt::format(L"Failed to update collection '{}'", GuidText(m_id)));
    hr = E_FAIL;
    description = unknown.message();
  }

  if (m_internalState.load() != InternalRunning)
  {
    return;
  }
  // A failed update marks the collection Error but keeps its schedule; the next good update
  // returns it to Running.
  if (FAILED(hr))
  {
    setState(Error, description);
  }
  if (m_internalState.load() == InternalRunning)
  {
    scheduleNext(period, start, end);
  }
}

void CCollectionBase::scheduleNext(const COleDateTimeSpan& period, const COleDateTimeEx& start, CUpdateEnd& end)
{
  try
  {
    const std::int64_t delayMs = ComputeUpdateDelayMs(period, start, COleDateTimeEx::GetCurrentUtcTime());
    boost::xtime deadline{};
    deadline.sec = delayMs / 1000;
    deadline.nsec = static_cast<boost::xtime::xtime_nsec_t>((delayMs % 1000) * 1000000);
    end.Finish();
    pool::tp_task next = dispatchUpdate(deadline);
    // A Stop that came in between the state test and the dispatch may have missed this task.
    if (m_internalState.load() != InternalRunning)
    {
      next.halt(true, true);
    }
  }
  catch (const CInterruptedException& error)
  {
    m_log->Error(error, L"Update task scheduling interrupted");
    m_internalState.store(InternalStopped);
    setState(Stopped);
  }
  catch (const std::exception& error)
  {
    m_log->Error(error, L"Update task scheduling failed");
    m_internalState.store(InternalStopped);
    if (get_hresult(error) == cancelledHResult)
    {
      setState(Stopped);
    }
    else
    {
      setState(Error, DescriptionOf(error));
    }
  }
}

void CCollectionBase::finishStop()
{
  try
  {
    std::int32_t stopping = InternalStopping;
    if (m_updateInProgress.load() == 0 && m_internalState.compare_exchange_strong(stopping, InternalStopped))
    {
      setState(Stopped);
    }
  }
  catch (...)
  {
  }
}

void CCollectionBase::Stop(bool sync)
{
  try
  {
    m_log->Info(fmt::format(L"Stop requested, sync: {}. Current state: {}; internal state: {}", sync,
                            StateWord(m_state.load()), InternalStateWord(m_internalState.load())));
  }
  catch (...)
  {
  }
  try
  {
    std::int32_t running = InternalRunning;
    if (m_internalState.compare_exchange_strong(running, InternalStopping))
    {
      setState(Stopping);
      withdrawUpdate();
      // With an update in progress, the update itself ends the stop.
      finishStop();
      // An update that ended between the swap and the Stopping notice has already said Stopped,
      // which Stopping then overwrote: say it again, so that a stopped collection reads Stopped.
      if (m_internalState.load() == InternalStopped)
      {
        setState(Stopped);
      }
    }
  }
  catch (...)
  {
  }
  if (sync && t_updatingCollection != this)
  {
    try
    {
      waitForCurrentTask();
    }
    catch (...)
    {
    }
  }
}

void CCollectionBase::waitForCurrentTask()
{
  pool::tp_task task = currentTask();
  if (task.finished() && m_activeUpdates.load() == 0)
  {
    return;
  }
  const auto waitStart = std::chrono::steady_clock::now();
  m_log->Info(L"Waiting for current task...");
  task.halt(false, false);
  // The current task may already be a successor that was withdrawn while its predecessor
  // still runs: wait for every started update of this collection to return.
  for (std::int32_t active = m_activeUpdates.load(); active != 0; active = m_activeUpdates.load())
  {
    m_activeUpdates.wait(active);
  }
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - waitStart;
  m_log->Info(fmt::format(L"Task finished in {:.3}", waited.count()));
}
} // namespace collector::ni::impl
