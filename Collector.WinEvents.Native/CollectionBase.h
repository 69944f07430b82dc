// Common base of every collection: identity, public and internal state, subscribers, and the
// periodic update on the kernel pool. A derived collection supplies updateImpl (one pass, on a
// pool thread) and hands new records to subscribers with notifyRecords. Create collections with
// std::make_shared: scheduled updates hold only a weak reference to the collection.
//   auto c = std::make_shared<CMyCollection>(log, pool, token, host, user, cls);
//   c->Subscribe(subscriber); c->SetUpdatePeriod(60); c->Run(); ... c->Stop(true);
#pragma once

#include "Collector/Interfaces/ICollection.h"
#include "Log.h"
#include "SharedSlot.h"
#include "WaitableCounter.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/OleDateTime.h"
#include "KeldaKernel/Pool.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

namespace collector::ni
{
class IHost;
}

namespace collector::ni::impl
{
class CCollectionBase : public ICollection,
                        public ICollectionInit,
                        public std::enable_shared_from_this<CCollectionBase>
{
public:
  // Values of the internal state.
  enum InternalStates : std::int32_t
  {
    InternalStopped = 0,
    InternalStarting = 1,
    InternalRunning = 2,
    InternalStopping = 3,
  };

  CCollectionBase(const std::shared_ptr<CLog>& log, pool threadPool, const std::shared_ptr<ICancellationToken>& token,
                  const std::shared_ptr<IHost>& host, const std::shared_ptr<IUser>& user,
                  const std::shared_ptr<IClass>& cls);
  ~CCollectionBase() override;

  GUID GetId() const override;
  tstring GetName() const override;
  States GetState() const override;
  std::shared_ptr<IClass> GetClass() const override;
  void SetUser(const std::shared_ptr<IUser>& user) override;
  void Run() override;
  void Stop(bool sync) override;

  void SetUpdatePeriod(int seconds) override;

  // The words that log lines use for the public and the internal state.
  static const wchar_t* StateWord(States state) noexcept;
  static const wchar_t* InternalStateWord(std::int32_t state) noexcept;

protected:
  // One update of the current run and the scheduling of the next; runs on a pool thread.
  void update();
  void setState(States state, const tstring& message = {});
  // Hands one batch of new records to every subscriber.
  void notifyRecords(Records records);

  const std::shared_ptr<CLog>& log() const noexcept { return m_log; }
  const std::shared_ptr<IHost>& host() const noexcept { return m_host; }
  std::shared_ptr<IUser> user() const { return m_user.load(); }
  // The token of the update running on this thread, else of the current run (null before the
  // first Run).
  std::shared_ptr<ICancellationToken> cancellationToken() const;
  std::int32_t internalState() const noexcept { return m_internalState.load(); }
  COleDateTimeSpan updatePeriod() const;

private:
  // A state change as handed to subscribers.
  class CState : public IState
  {
  public:
    CState(States state, tstring description) : m_state(state), m_description(std::move(description)) {}
    States GetState() const override { return m_state; }
    tstring GetDescription() const override { return m_description; }

  private:
    States m_state;
    tstring m_description;
  };

  // A state change waiting to reach the subscribers, in the order the changes were made.
  struct CPendingState
  {
    States state;
    // The internal state when the change was made, for its log line.
    std::int32_t internal;
    tstring message;
  };
  class CUpdateEnd;

  // Dispatches `update` for run `generation` with that run's token and makes it the current
  // task. Called with m_stateLock held.
  pool::tp_task dispatchUpdate(std::uint64_t generation, const std::shared_ptr<ICancellation>& token,
                               std::optional<boost::xtime> deadline);
  // True when an update body ran (false: it was skipped).
  bool updateRun(std::uint64_t generation, const std::shared_ptr<ICancellation>& token);
  void runBody(std::uint64_t generation, const std::shared_ptr<ICancellation>& token, CUpdateEnd& end);
  void scheduleNext(std::uint64_t generation, const std::shared_ptr<ICancellation>& token,
                    const COleDateTimeSpan& period, const COleDateTimeEx& start, CUpdateEnd& end);
  // Ends run `generation` in Stopped (or Error with a description) unless it already ended.
  void endRun(std::uint64_t generation, States state, const tstring& message = {});
  // Withdraws the current task if it waits; called with m_stateLock held.
  void withdrawUpdateLocked() noexcept;
  // Completes a stop that found an update in progress, once that update has ended.
  void finishStop();
  // True while an update body of the current run runs; read with m_stateLock held.
  bool runUpdateInProgress() const noexcept;
  // Records a public state change and queues its notification; called with m_stateLock held.
  void setStateLocked(States state, const tstring& message);
  // Hands queued state changes to subscribers, one thread at a time, outside every lock.
  void deliverStates();
  void deliverState(const CPendingState& change);
  // Schedules the first update of a run whose Run found another delivery going on, now that its
  // Starting is out; true when that failed and queued Error. Called by the delivering thread
  // with m_stateLock held in `lock`.
  bool dispatchWaitingFirstUpdate(std::unique_lock<std::mutex>& lock);
  void waitForUpdateEnd();
  void waitForDelivery(std::uint64_t queued);

  std::shared_ptr<CLog> m_log;
  mutable std::mutex m_periodLock;
  COleDateTimeSpan m_updatePeriod;
  GUID m_id{};
  tstring m_name;
  pool m_pool;
  // The token of the current run, and of the update body in progress.
  CSharedSlot<ICancellation> m_cancellation;
  CSharedSlot<ICancellation> m_updateToken;
  std::shared_ptr<ICancellationToken> m_parentToken;
  std::shared_ptr<IHost> m_host;
  CSharedSlot<IUser> m_user;
  std::shared_ptr<IClass> m_class;
  // Every change of the internal state, the run number and the current task is made under
  // this lock, and each public change is queued under it too, so that subscribers hear the
  // changes in the order they were made. It is never held while a subscriber or a log runs.
  mutable std::mutex m_stateLock;
  std::atomic<States> m_state{Stopped};
  std::atomic<std::int32_t> m_internalState{InternalStopped};
  // Incremented by every Run; an update of an earlier run ends without touching the state.
  std::atomic<std::uint64_t> m_generation{0};
  pool::tp_task m_currentTask;
  std::deque<CPendingState> m_pendingStates;
  bool m_delivering = false;
  // The run whose first update waits for the delivering thread to hand out its Starting (0: none).
  std::uint64_t m_firstUpdateWaiting = 0;
  std::atomic<std::uint64_t> m_queuedStates{0};
  CWaitableCounter m_deliveredStates;
  std::atomic<std::int32_t> m_updateInProgress{0};
  // The run of the update body in progress.
  std::atomic<std::uint64_t> m_progressGeneration{0};
  // Update bodies that have ended, so that a waiting Stop sees the end of the one it found.
  CWaitableCounter m_endedUpdates;
  // Update bodies begun, and those whose pool procedure has also let go of the collection: the
  // second count outlives the collection, so that it moves only once the procedure holds no
  // reference, and a Stop(true) that waits on it returns with no update left anywhere.
  std::atomic<std::uint64_t> m_begunUpdates{0};
  std::shared_ptr<CWaitableCounter> m_releasedUpdates = std::make_shared<CWaitableCounter>();
  // Set by the first subscriber failure on records within one update, which alone is logged.
  std::atomic<bool> m_recordFailureLogged{false};
};
} // namespace collector::ni::impl
