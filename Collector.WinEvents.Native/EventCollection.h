// The "WindowsEvents" collection: reads the event log channels named by its filters from the
// task's host, turns each new event into a keyed record with the eight event fields, and hands
// every record to the subscribers as soon as it is made. Per channel it remembers the last
// record number delivered, so that each update asks only for newer events.
//   auto c = std::make_shared<CEventCollection>(log, pool, token, host, user, cls);
//   std::vector<win_events::SFilter> filters{{L"System", L"", 3600000, {}}};
//   c->SetFilter(filters); c->Subscribe(subscriber); c->Run();
// The Event Log API session is opened on the first update and kept; a session that fails at
// EvtQuery (bad credentials, host gone) and SetUser close it, and the next update opens another.
// Bookmarks are kept per path the events were read from (case ignored); a channel whose newest
// record is below its bookmark was cleared and is read again from its first record. A query
// whose result goes stale (a log cleared or wrapped while read) is issued again at once. A channel
// of forwarded events, whose EventRecordIDs come from other hosts and logs, is read by position
// instead: a Windows bookmark of its last delivered event, and EvtSeek past it at each update.
#pragma once

#include "CollectionBase.h"
#include "EventLogApi.h"
#include "EventPublishers.h"
#include "EventQuery.h"
#include "EventXml.h"
#include "RecordRecycler.h"

#include "Collector.Interfaces.Impl.h"
#include "Collector/Interfaces/WinEventsInit.h"

#include <atomic>
#include <map>
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
  std::vector<win_events::SBookmark> SaveBookmarks() const override;
  void RestoreBookmarks(const std::vector<win_events::SBookmark>& bookmarks) override;
  // Also drops the session, so that the next update logs on with the new account.
  void SetUser(const std::shared_ptr<IUser>& user) override;

  // The last record number delivered per path.
  EventBookmarks GetBookmarks() const;
  // Events the next EvtNext asks for: batchSize, halved while replies overflow.
  DWORD CurrentBatchSize() const noexcept { return m_batchSize.load(); }

  // Events asked of each EvtNext, and its time-out.
  static constexpr DWORD batchSize = 100;
  static constexpr DWORD nextTimeout = 0xFFFFFFFF;
  // EvtQuery flags: channel paths, oldest first, a bad channel does not spoil the others.
  static constexpr DWORD queryFlags = EvtQueryChannelPath | EvtQueryForwardDirection | EvtQueryTolerateQueryErrors;
  // Queries issued again within one update after their result went stale (a log cleared or
  // wrapped while read); one more stale result fails the update.
  static constexpr unsigned staleRequeries = 3;

protected:
  // One pass: open the session once, run the query list, deliver the results.
  void updateImpl() override;
  // Reads every result of one query in batches and delivers each event's record at once.
  // skip: events passed over first (the bookmarked one a seek stands on).
  void processResults(EVT_HANDLE session, EVT_HANDLE query, DWORD skip = 0);
  // One event as a record; fills the event's channel and record number. Throws when the event
  // cannot be rendered or read.
  std::shared_ptr<CRecordOnVector> createRecord(EVT_HANDLE session, EVT_HANDLE event, tstring& channel,
                                                __int64& recordId);

private:
  // Moves a channel's Windows bookmark to its pending event; called before the event's handle
  // is closed, and by SaveBookmarks.
  void flushPosition() const;
  void flushPositionLocked() const;
  // Opens and keeps the host's session; false, with EvtOpenSession's last error, when it fails.
  bool openSession(DWORD& error);
  // Moves the channel's bookmark forward (never back); for a channel read by position, or one
  // found to hold forwarded events, its Windows bookmark moves to the event.
  void advanceBookmark(const tstring& channel, __int64 recordId, EVT_HANDLE event, bool forwarded);
  // Opens a query list on the session; a failure closes the session and throws.
  EVT_HANDLE openQuery(const tstring& text);
  // Reads a channel by position: its query placed just past its Windows bookmark.
  void readByPosition(EVT_HANDLE session, const tstring& path, EVT_HANDLE bookmark);
  // EvtRender of a Windows bookmark; false when it cannot be rendered.
  bool renderBookmark(EVT_HANDLE bookmark, tstring& xml) const;
  // Owns a bookmark handle, closed through the table.
  std::shared_ptr<void> ownBookmark(EVT_HANDLE bookmark) const;
  // The path EvtGetEventInfo reports for the event; false when it cannot tell.
  bool readEventPath(EVT_HANDLE event, tstring& path);
  // The filter Path that names the event's path (a file's "file://" form), else the path itself.
  const tstring& bookmarkPath(const tstring& eventPath) const;
  // bookmarkPath of the event's path, remembered for the next event of the same path.
  const tstring& lastBookmarkPath(const tstring& eventPath);
  // Sets to 0 the bookmark of every filtered channel whose newest record lies below it, and
  // logs a channel that wrapped past the record after its bookmark.
  void restartClearedLogs(EVT_HANDLE session);
  // The lowest record number of the channel at or above recordId (0 when none is); false when
  // the channel cannot tell.
  bool lowestRecordFrom(EVT_HANDLE session, const tstring& path, __int64 recordId, __int64& lowest);
  // The event's XML in the render buffer; throws when it cannot be rendered.
  std::wstring_view renderXml(EVT_HANDLE event);
  // Moves the texts of a record that came back into the reading buffers (its fields stay).
  void reclaimTexts(CRecordOnVector& record);
  // Gives the key its one field, InternalId; a field of a record that came back is reused.
  static void setKeyField(CKey& key, __int64 internalId);

  SEventLogApi m_api;
  // Guards the filters and the bookmarks against callers reading or setting them during an update.
  mutable std::mutex m_lock;
  std::vector<win_events::SFilter> m_filters;
  EventBookmarks m_bookmarks;
  // Channels read by position, with the Windows bookmark of their last delivered event (null
  // until one was delivered).
  std::map<tstring, std::shared_ptr<void>, SChannelPathLess> m_positions;
  // The last delivered event of a channel read by position, whose bookmark moves to it once per
  // batch; its handle stays open until then. Applied by SaveBookmarks too, hence mutable.
  mutable std::shared_ptr<void> m_pendingBookmark;
  mutable EVT_HANDLE m_pendingEvent = nullptr;
  std::shared_ptr<void> m_session;
  // Set by SetUser; the update closes the session before its next query.
  std::atomic<bool> m_dropSession{false};
  std::atomic<DWORD> m_batchSize{batchSize};
  DWORD m_nextTimeout = nextTimeout;

  // Reused from event to event by createRecord (one update at a time).
  CPublisherMetadataCache m_publishers{m_api};
  std::vector<wchar_t> m_renderBuffer;
  CEventXmlReader m_xmlReader;
  SEventXmlText m_xmlText;
  tstring m_initiatedBy;
  // Records come back here when their subscribers let go, and are filled again.
  std::shared_ptr<CRecordRecycler> m_records = std::make_shared<CRecordRecycler>();
  tstring m_channel;
  std::vector<EVT_VARIANT> m_pathBuffer;
  tstring m_path;
  // The filters' paths, as of the current update.
  std::vector<tstring> m_filterPaths;
  // Per path, the bookmark at which a wrap past unread events was last logged (logged once).
  EventBookmarks m_reportedGaps;
  tstring m_lastEventPath;
  tstring m_lastBookmarkPath;
  // "InitiatedBy" per SID text, for the current update only: an update looks each account up
  // once, the next one asks the system again (accounts may have been renamed meanwhile).
  std::unordered_map<tstring, tstring> m_accounts;
};
} // namespace collector::ni::impl
