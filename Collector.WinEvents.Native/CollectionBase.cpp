#include "CollectionBase.h"

#include "UpdateSchedule.h"

#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IUser.h"
#include "KeldaKernel/Exceptions.h"
#include "Platform/Windows.h"

#include <chrono>
#include <utility>
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
// The collection whose state changes this thread is handing to subscribers, so that a
// Stop(true) from a subscriber does not wait for its own delivery.
thread_local const void* t_deliveringCollection = nullptr;

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

// Ends the update body whatever the path: logs "Update finished", clears the in-progress flag,
// counts the ended update and completes a stop that arrived after the update's last token
// test. Scheduling calls Finish before it dispatches the successor, which may start at once on
// another worker and must not find the flag still set.
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
    m_owner.m_updateToken.store(nullptr);
    m_owner.m_updateInProgress.store(0);
    m_owner.m_updateInProgress.notify_all();
    m_owner.m_endedUpdates.Increment();
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
  try
  {
    {
      const std::lock_guard lock(m_stateLock);
      // Scheduled updates hold only a weak reference, so a waiting one would find nothing to
      // run; withdraw it anyway so that it does not occupy the pool's timer.
      withdrawUpdateLocked();
      if (const auto cancellation = m_cancellation.load())
      {
        cancellation->cancel();
      }
      // Subscribers that still hear from a collection going away learn that it has stopped.
      m_internalState.store(InternalStopped);
      setStateLocked(Stopped, {});
    }
    deliverStates();
  }
  catch (...)
  {
  }
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

std::shared_ptr<ICancellationToken> CCollectionBase::cancellationToken() const
{
  if (t_updatingCollection == this)
  {
    return m_updateToken.load();
  }
  return m_cancellation.load();
}

void CCollectionBase::setState(States state, const tstring& message)
{
  {
    const std::lock_guard lock(m_stateLock);
    setStateLocked(state, message);
  }
  deliverStates();
}

void CCollectionBase::setStateLocked(States state, const tstring& message)
{
  const States previous = m_state.exchange(state);
  // Repeated Running or Stopped are silent; every Error is reported again.
  if (previous == state && state != Error)
  {
    return;
  }
  m_pendingStates.push_back(CPendingState{state, m_internalState.load(), message});
  m_queuedStates.fetch_add(1);
}

void CCollectionBase::deliverStates()
{
  std::unique_lock lock(m_stateLock);
  // The thread already delivering takes the new changes too, in their order.
  if (m_delivering)
  {
    return;
  }
  m_delivering = true;
  const void* const outer = t_deliveringCollection;
  t_deliveringCollection = this;
  do
  {
    while (!m_pendingStates.empty())
    {
      const CPendingState change = std::move(m_pendingStates.front());
      m_pendingStates.pop_front();
      lock.unlock();
      deliverState(change);
      m_deliveredStates.Increment();
      lock.lock();
    }
  } while (dispatchWaitingFirstUpdate(lock));
  m_delivering = false;
  t_deliveringCollection = outer;
}

bool CCollectionBase::dispatchWaitingFirstUpdate(std::unique_lock<std::mutex>& lock)
{
  const std::uint64_t generation = std::exchange(m_firstUpdateWaiting, 0);
  // A run stopped, or started again, while it waited has nothing left to schedule.
  if (generation == 0 || m_generation.load() != generation || m_internalState.load() != InternalStarting)
  {
    return false;
  }
  try
  {
    dispatchUpdate(generation, m_cancellation.load(), std::nullopt);
    return false;
  }
  catch (const std::exception& error)
  {
    // As in Run, except that Run has returned: the failure goes to the log and the state.
    m_internalState.store(InternalStopped);
    setStateLocked(Error, DescriptionOf(error));
    lock.unlock();
    try
    {
      m_log->Error(error, L"Update task scheduling failed");
    }
    catch (...)
    {
    }
    lock.lock();
    return true;
  }
}

void CCollectionBase::deliverState(const CPendingState& change)
{
  try
  {
    m_log->Info(fmt::format(L"New state: {} (current internal state: {}) {}", StateWord(change.state),
                            InternalStateWord(change.internal), change.message));
  }
  catch (...)
  {
    // A log call is an interruption point; the subscribers hear of the change regardless.
  }
  const CState changed(change.state, change.message);
  const GUID id = GetId();
  notifyEach([&](ISubscriber& subscriber) {
    // One failing subscriber must not keep the others from hearing of the change.
    try
    {
      subscriber.OnStateChanged(id, changed);
    }
    catch (const std::exception& error)
    {
      m_log->Error(error, L"Subscriber failed to take the state change");
    }
    catch (...)
    {
    }
  });
}

void CCollectionBase::notifyRecords(Records records)
{
  const GUID id = GetId();
  notifyEach([&](ISubscriber& subscriber) {
    // A subscriber that fails keeps neither the update nor the subscribers after it from the
    // records; one line per update tells of it.
    try
    {
      subscriber.OnRecords(id, records);
    }
    catch (const CInterruptedException&)
    {
      // A stop that reached the subscriber's thread ends the update, as it would anywhere else.
      throw;
    }
    catch (const std::exception& error)
    {
      if (get_hresult(error) == cancelledHResult)
        throw;
      if (!m_recordFailureLogged.exchange(true))
      {
        m_log->Error(error, L"Subscriber failed to take the records");
      }
    }
    catch (...)
    {
      if (!m_recordFailureLogged.exchange(true))
      {
        m_log->Error(CKeldaException(L"Unknown exception"), L"Subscriber failed to take the records");
      }
    }
  });
}

void CCollectionBase::Run()
{
  m_log->Info(fmt::format(L"Start requested. Current state: {}; internal state: {}", StateWord(m_state.load()),
                          InternalStateWord(m_internalState.load())));
  // Updates hold the collection by a weak reference: without an owner they could never start.
  if (weak_from_this().expired())
  {
    KELDA_THROW(CKeldaException(L"Collection is not owned by a std::shared_ptr"));
  }
  std::uint64_t generation = 0;
  {
    const std::lock_guard lock(m_stateLock);
    // A collection that is starting, running or stopping ignores a second start.
    if (m_internalState.load() != InternalStopped)
    {
      return;
    }
    m_internalState.store(InternalStarting);
    generation = m_generation.fetch_add(1) + 1;
    setStateLocked(Starting, {});
  }
  // Subscribers hear of Starting before the first update exists, so no record can come first.
  deliverStates();
  std::exception_ptr failure;
  {
    const std::lock_guard lock(m_stateLock);
    // A stop (maybe from a subscriber of Starting) may have ended this run meanwhile.
    if (m_internalState.load() != InternalStarting || m_generation.load() != generation)
    {
      return;
    }
    try
    {
      std::shared_ptr<ICancellation> token = create_child_cancellation(m_parentToken);
      m_cancellation.store(token);
      // Another thread (or this one, further out, when Run comes from a subscriber) is still
      // handing out earlier states and will hand out Starting after them: it schedules the
      // update once its queue is empty.
      if (m_delivering)
      {
        m_firstUpdateWaiting = generation;
        return;
      }
      dispatchUpdate(generation, token, std::nullopt);
    }
    catch (const std::exception& error)
    {
      failure = std::current_exception();
      m_internalState.store(InternalStopped);
      setStateLocked(Error, DescriptionOf(error));
    }
  }
  deliverStates();
  if (failure)
  {
    std::rethrow_exception(failure);
  }
}

pool::tp_task CCollectionBase::dispatchUpdate(std::uint64_t generation, const std::shared_ptr<ICancellation>& token,
                                              std::optional<boost::xtime> deadline)
{
  std::weak_ptr<CCollectionBase> weakSelf = weak_from_this();
  auto procedure = [weakSelf, generation, token, released = m_releasedUpdates]() {
    bool ran = false;
    if (const auto self = weakSelf.lock())
    {
      ran = self->updateRun(generation, token);
    }
    if (ran)
    {
      released->Increment();
    }
  };
  m_currentTask = m_pool.dispatch_proc(std::move(procedure), deadline);
  return m_currentTask;
}

void CCollectionBase::withdrawUpdateLocked() noexcept
{
  try
  {
    if (!m_currentTask.finished())
    {
      m_currentTask.halt(true, true);
    }
  }
  catch (...)
  {
    // Stopping goes on regardless: a collection that cannot withdraw its update still stops.
  }
}

void CCollectionBase::update()
{
  std::uint64_t generation = 0;
  std::shared_ptr<ICancellation> token;
  {
    const std::lock_guard lock(m_stateLock);
    generation = m_generation.load();
    token = m_cancellation.load();
  }
  if (updateRun(generation, token))
  {
    m_releasedUpdates->Increment();
  }
}

bool CCollectionBase::updateRun(std::uint64_t generation, const std::shared_ptr<ICancellation>& token)
{
  bool waited = false;
  for (;;)
  {
    // Read before the attempt: an update that ends after it moves the count on, so the wait
    // below cannot miss it even if another update takes the flag first.
    const std::uint64_t ended = m_endedUpdates.Load();
    std::int32_t idle = 0;
    if (m_updateInProgress.compare_exchange_strong(idle, 1))
    {
      break;
    }
    if (m_generation.load() != generation)
    {
      m_log->Debug(L"Update of an ended run skipped");
      return false;
    }
    // The first update of a new run may meet the previous run's last update while that one
    // ends: it waits for it rather than leave the new run in Starting for good.
    if (m_internalState.load() != InternalStarting)
    {
      m_log->Info(L"Update cancelled because previous update is in progress");
      return false;
    }
    if (!waited)
    {
      waited = true;
      m_log->Debug(L"Update waits for the previous run's last update");
    }
    m_endedUpdates.WaitWhileEquals(ended);
  }
  m_begunUpdates.fetch_add(1);
  m_progressGeneration.store(generation);
  // Marked before the end guard, so that the subscribers the end notifies on this thread may
  // call Stop(true) without waiting for the update that is calling them.
  const void* const outerCollection = t_updatingCollection;
  t_updatingCollection = this;
  struct CRestore
  {
    const void* previous;
    ~CRestore() { t_updatingCollection = previous; }
  } const restore{outerCollection};
  CUpdateEnd end(*this);
  m_updateToken.store(token);
  m_recordFailureLogged.store(false);
  runBody(generation, token, end);
  return true;
}

void CCollectionBase::runBody(std::uint64_t generation, const std::shared_ptr<ICancellation>& token,
                              CUpdateEnd& end)
{
  try
  {
    m_log->Debug(fmt::format(L"Update started. Current state: {}; internal state: {}", StateWord(m_state.load()),
                             InternalStateWord(m_internalState.load())));
  }
  catch (...)
  {
  }
  bool stale = false;
  bool stopping = false;
  {
    const std::lock_guard lock(m_stateLock);
    if (m_generation.load() != generation || m_internalState.load() == InternalStopped)
    {
      stale = true;
    }
    else if (m_internalState.load() == InternalStarting)
    {
      m_internalState.store(InternalRunning);
    }
    else if (m_internalState.load() == InternalStopping)
    {
      stopping = true;
    }
  }
  if (stale)
  {
    // An update of a run that has ended (or of an earlier run) leaves the state to its owner.
    try
    {
      m_log->Debug(L"Update of an ended run skipped");
    }
    catch (...)
    {
    }
    return;
  }

  COleDateTimeEx start;
  start.SetStatus(COleDateTimeEx::null);
  const COleDateTimeSpan period = updatePeriod();
  HRESULT hr = S_OK;
  tstring description;
  try
  {
    if (!token)
    {
      KELDA_THROW(CInterruptedException());
    }
    if (stopping)
    {
      m_log->Info(L"Collection is stopping. Cancelling");
      token->cancel();
    }
    token->throw_if_cancelled();
    start = COleDateTimeEx::GetCurrentUtcTime();
    {
      // Makes the run's token current, so that every log call of the pass can stop it.
      const interruption_scope scope(token);
      updateImpl();
    }
    token->throw_if_cancelled();
    {
      const std::lock_guard lock(m_stateLock);
      // A stop that came after the last token test has already said Stopping.
      if (m_generation.load() == generation && m_internalState.load() == InternalRunning)
      {
        setStateLocked(Running, {});
      }
    }
    deliverStates();
  }
  catch (const CInterruptedException& error)
  {
    m_log->Error(error, L"Interrupted");
    endRun(generation, Stopped);
    return;
  }
  catch (const std::exception& error)
  {
    m_log->Error(error, fmt::format(L"Failed to update collection '{}'", GuidText(m_id)));
    hr = get_hresult(error);
    description = DescriptionOf(error);
    if (hr == cancelledHResult)
    {
      endRun(generation, Stopped);
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

  {
    const std::lock_guard lock(m_stateLock);
    if (m_generation.load() != generation || m_internalState.load() != InternalRunning)
    {
      return;
    }
    // A failed update marks the collection Error but keeps its schedule; the next good update
    // returns it to Running.
    if (FAILED(hr))
    {
      setStateLocked(Error, description);
    }
  }
  deliverStates();
  scheduleNext(generation, token, period, start, end);
}

void CCollectionBase::scheduleNext(std::uint64_t generation, const std::shared_ptr<ICancellation>& token,
                                   const COleDateTimeSpan& period, const COleDateTimeEx& start, CUpdateEnd& end)
{
  try
  {
    const std::int64_t delayMs = ComputeUpdateDelayMs(period, start, COleDateTimeEx::GetCurrentUtcTime());
    boost::xtime deadline{};
    deadline.sec = delayMs / 1000;
    deadline.nsec = static_cast<boost::xtime::xtime_nsec_t>((delayMs % 1000) * 1000000);
    end.Finish();
    // Tested and dispatched under the lock: a Stop either comes first and nothing is
    // dispatched, or comes after and withdraws what was.
    const std::lock_guard lock(m_stateLock);
    if (m_generation.load() == generation && m_internalState.load() == InternalRunning)
    {
      dispatchUpdate(generation, token, deadline);
    }
  }
  catch (const CInterruptedException& error)
  {
    m_log->Error(error, L"Update task scheduling interrupted");
    endRun(generation, Stopped);
  }
  catch (const std::exception& error)
  {
    m_log->Error(error, L"Update task scheduling failed");
    if (get_hresult(error) == cancelledHResult)
    {
      endRun(generation, Stopped);
    }
    else
    {
      endRun(generation, Error, DescriptionOf(error));
    }
  }
}

void CCollectionBase::endRun(std::uint64_t generation, States state, const tstring& message)
{
  {
    const std::lock_guard lock(m_stateLock);
    if (m_generation.load() != generation || m_internalState.load() == InternalStopped)
    {
      return;
    }
    m_internalState.store(InternalStopped);
    setStateLocked(state, message);
  }
  deliverStates();
}

bool CCollectionBase::runUpdateInProgress() const noexcept
{
  // An earlier run's update still ending does not hold up this run's stop: it ends quietly.
  return m_updateInProgress.load() != 0 && m_progressGeneration.load() == m_generation.load();
}

void CCollectionBase::finishStop()
{
  try
  {
    {
      const std::lock_guard lock(m_stateLock);
      if (m_internalState.load() != InternalStopping || runUpdateInProgress())
      {
        return;
      }
      m_internalState.store(InternalStopped);
      setStateLocked(Stopped, {});
    }
    deliverStates();
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
    {
      const std::lock_guard lock(m_stateLock);
      const std::int32_t state = m_internalState.load();
      // A starting collection stops too: its first update finds Stopping and ends the run.
      if (state == InternalRunning || state == InternalStarting)
      {
        m_internalState.store(InternalStopping);
        setStateLocked(Stopping, {});
        if (const auto cancellation = m_cancellation.load())
        {
          cancellation->cancel();
        }
        withdrawUpdateLocked();
        // With an update of this run in progress, the update itself ends the stop.
        if (!runUpdateInProgress())
        {
          m_internalState.store(InternalStopped);
          setStateLocked(Stopped, {});
        }
      }
    }
    deliverStates();
  }
  catch (...)
  {
  }
  if (sync && t_updatingCollection != this)
  {
    try
    {
      waitForUpdateEnd();
      if (t_deliveringCollection != this)
      {
        waitForDelivery(m_queuedStates.load());
      }
    }
    catch (...)
    {
    }
  }
}

void CCollectionBase::waitForUpdateEnd()
{
  // Only the updates begun by now are awaited: later ones of a stopped run end at once, and
  // back-to-back updates of a running one would keep a wait for "none in progress" going.
  // Two can be in progress: one that has scheduled the next and not yet let go, and the next.
  const std::uint64_t begun = m_begunUpdates.load();
  std::uint64_t released = m_releasedUpdates->Load();
  if (released >= begun)
  {
    return;
  }
  const auto waitStart = std::chrono::steady_clock::now();
  m_log->Info(L"Waiting for current task...");
  for (; released < begun; released = m_releasedUpdates->Load())
  {
    m_releasedUpdates->WaitWhileEquals(released);
  }
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - waitStart;
  m_log->Info(fmt::format(L"Task finished in {:.3}", waited.count()));
}

void CCollectionBase::waitForDelivery(std::uint64_t queued)
{
  for (std::uint64_t delivered = m_deliveredStates.Load(); delivered < queued; delivered = m_deliveredStates.Load())
  {
    m_deliveredStates.WaitWhileEquals(delivered);
  }
}

} // namespace collector::ni::impl
