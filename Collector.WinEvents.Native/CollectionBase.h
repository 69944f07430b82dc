// Common base of every collection: identity, public and internal state, subscribers, and the
// periodic update on the kernel pool. A derived collection supplies updateImpl (one pass, on a
// pool thread) and hands new records to subscribers with notifyRecords. Create collections with
// std::make_shared: scheduled updates hold only a weak reference to the collection.
//   auto c = std::make_shared<CMyCollection>(log, pool, token, host, user, cls);
//   c->Subscribe(subscriber); c->SetUpdatePeriod(60); c->Run(); ... c->Stop(true);
#pragma once

#include "Collector/Interfaces/ICollection.h"
#include "Log.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/OleDateTime.h"
#include "KeldaKernel/Pool.h"

#include <atomic>
#include <boost/thread/future.hpp>
#include <cstdint>
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
  // One update and the scheduling of the next; runs on a pool thread.
  void update();
  void setState(States state, const tstring& message = {});
  // Hands one batch of new records to every subscriber.
  void notifyRecords(Records records);

  const std::shared_ptr<CLog>& log() const noexcept { return m_log; }
  const std::shared_ptr<IHost>& host() const noexcept { return m_host; }
  std::shared_ptr<IUser> user() const { return m_user.load(); }
  // The token of the current run (null before the first Run).
  std::shared_ptr<ICancellationToken> cancellationToken() const { return m_cancellation.load(); }
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

  struct CCurrentTask
  {
    boost::BOOST_THREAD_FUTURE<void> done;
    pool::tp_task task;
  };
  class CUpdateEnd;

  // Dispatches `update` and makes it the current task; returns its handle.
  pool::tp_task dispatchUpdate(std::optional<boost::xtime> deadline);
  void scheduleNext(const COleDateTimeSpan& period, const COleDateTimeEx& start, CUpdateEnd& end);
  pool::tp_task currentTask() const;
  // Cancels the running update (it meets its next interruption point) and withdraws a waiting one.
  void withdrawUpdate() noexcept;
  // Completes a stop that found an update in progress, once that update has ended.
  void finishStop();
  void waitForCurrentTask();

  std::shared_ptr<CLog> m_log;
  mutable std::mutex m_periodLock;
  COleDateTimeSpan m_updatePeriod;
  GUID m_id{};
  tstring m_name;
  pool m_pool;
  std::atomic<std::shared_ptr<ICancellation>> m_cancellation;
  std::shared_ptr<ICancellationToken> m_parentToken;
  std::shared_ptr<IHost> m_host;
  std::atomic<std::shared_ptr<IUser>> m_user;
  std::shared_ptr<IClass> m_class;
  std::atomic<States> m_state{Stopped};
  std::atomic<std::int32_t> m_internalState{InternalStopped};
  std::atomic<std::int32_t> m_updateInProgress{0};
  // Pool procedures of this collection that have started and not yet returned.
  std::atomic<std::int32_t> m_activeUpdates{0};
  mutable std::mutex m_taskLock;
  CCurrentTask m_currentTask;
};
} // namespace collector::ni::impl
