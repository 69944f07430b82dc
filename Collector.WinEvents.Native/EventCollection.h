// The "WindowsEvents" collection: reads the event log channels named by its filters from the
// task's host, turns each new event into a keyed record with the eight event fields, and hands
// every record to the subscribers as soon as it is made. Per channel it remembers the last
// record number delivered, so that each update asks only for newer events.
//   auto c = std::make_shared<CEventCollection>(log, pool, token, host, user, cls);
//   std::vector<win_events::SFilter> filters{{L"System", L"", 3600000, {}}};
//   c->SetFilter(filters); c->Subscribe(subscriber); c->Run();
// The Event Log API session is opened on the first update (retried by later updates until it
// succeeds) and kept for the life of the collection.
#pragma once

#include "CollectionBase.h"
#include "EventLogApi.h"
#include "EventQuery.h"
#include "EventXml.h"

#include "Collector.Interfaces.Impl.h"
#include "Collector/Interfaces/WinEventsInit.h"

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace collector::ni::impl
{
class CEventCollection : public CCollectionBase, public win_events::ICollectionInit
{
public:
  CEventCollection(const std::shared_ptr<CLog>& log, pool threadPool, const std::shared_ptr<ICancellationToken>& token,
                   const std::shared_ptr<IHost>& host, const std::shared_ptr<IUser>& user,
                   const std::shared_ptr<IClass>& cls);
  // The same over another table of Event Log API functions (tests).
  CEventCollection(const std::shared_ptr<CLog>& log, pool threadPool, const std::shared_ptr<ICancellationToken>& token,
                   const std::shared_ptr<IHost>& host, const std::shared_ptr<IUser>& user,
                   const std::shared_ptr<IClass>& cls, const SEventLogApi& api);
  ~CEventCollection() override;

  // Validates (E_INVALIDARG for an empty list or an empty Path) and stores a copy.
  void SetFilter(std::vector<win_events::SFilter>& filters) override;
  std::vector<win_events::SFilter> GetFilter() const override;

  // The last record number delivered per channel.
  EventBookmarks GetBookmarks() const;

  // Events asked of each EvtNext, and its time-out.
  static constexpr DWORD batchSize = 100;
  static constexpr DWORD nextTimeout = 0xFFFFFFFF;
  // EvtQuery flags: channel paths, oldest first, a bad channel does not spoil the others.
  static constexpr DWORD queryFlags = EvtQueryChannelPath | EvtQueryForwardDirection | EvtQueryTolerateQueryErrors;

protected:
  // One pass: open the session once, run the query list, deliver the results.
  void updateImpl() override;
  // Reads every result of one query in batches and delivers each event's record at once.
  void processResults(EVT_HANDLE session, EVT_HANDLE query);
  // One event as a record; fills the event's channel and record number. Throws when the event
  // cannot be rendered or read.
  std::shared_ptr<CRecordOnVector> createRecord(EVT_HANDLE session, EVT_HANDLE event, tstring& channel,
                                                __int64& recordId);

private:
  // Opens and keeps the host's session; false, with EvtOpenSession's last error, when it fails.
  bool openSession(DWORD& error);
  // Moves the channel's bookmark forward (never back).
  void advanceBookmark(const tstring& channel, __int64 recordId);

  SEventLogApi m_api;
  // Guards the filters and the bookmarks against callers reading or setting them during an update.
  mutable std::mutex m_lock;
  std::vector<win_events::SFilter> m_filters;
  EventBookmarks m_bookmarks;
  std::shared_ptr<void> m_session;
  DWORD m_batchSize = batchSize;
  DWORD m_nextTimeout = nextTimeout;

  // Reused from event to event by createRecord (one update at a time).
  std::vector<wchar_t> m_renderBuffer;
  CEventXmlReader m_xmlReader;
  SEventXmlText m_xmlText;
  tstring m_channel;
  // "InitiatedBy" per SID text, for the current update only: an update looks each account up
  // once, the next one asks the system again (accounts may have been renamed meanwhile).
  std::unordered_map<tstring, tstring> m_accounts;
};
} // namespace collector::ni::impl
