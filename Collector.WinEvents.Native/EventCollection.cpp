#include "EventCollection.h"

#include "EventAccount.h"
#include "EventDescription.h"
#include "EventLogin.h"
#include "EventNumbers.h"

#include "Collector/Interfaces/FieldNames.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IUser.h"
#include "KeldaKernel/Account.h"
#include "KeldaKernel/Exceptions.h"

#include <algorithm>
#include <array>
#include <fmt/xchar.h>

namespace collector::ni::impl
{
namespace
{
// An Event Log call that failed and set no error code. Windows sets one with every failure; Wine's
// stub EvtOpenSession sets none, and a wrapped code 0 (S_OK) would not fail the update.
CHResultException FailureWithoutCode(const wchar_t* call)
{
  return CHResultException(E_FAIL, fmt::format(L"{} failed and set no error code (last error 0)", call));
}

constexpr HRESULT cancelledHResult = HRESULT_FROM_WIN32(ERROR_CANCELLED);

// True when the fields are the eight createRecord adds, in its order: a record that came back
// as it was made (no holder sorted, detached or extended its fields).
bool HasEventFields(const std::vector<CField>& fields, const SEventFieldNames& names)
{
  const std::array<const std::shared_ptr<tstring>*, 8> order = {
    &names.SourceName, &names.Description, &names.CreatedTime, &names.InitiatedBy,
    &names.EventType,  &names.Data,        &names.EventCode,   &names.InternalId};
  if (fields.size() != order.size())
    return false;
  for (std::size_t k = 0; k < order.size(); ++k)
  {
    if (fields[k].GetSharedName() != *order[k])
      return false;
  }
  return true;
}

// Closes a handle of the Event Log API through the collection's table.
class CEventHandle
{
public:
  CEventHandle(const SEventLogApi& api, EVT_HANDLE handle) noexcept : m_api(api), m_handle(handle) {}
  ~CEventHandle()
  {
    if (m_handle != nullptr)
      m_api.Close(m_handle);
  }
  CEventHandle(const CEventHandle&) = delete;
  CEventHandle& operator=(const CEventHandle&) = delete;
  EVT_HANDLE get() const noexcept { return m_handle; }

private:
  const SEventLogApi& m_api;
  EVT_HANDLE m_handle;
};

// The event handles of one EvtNext batch; closed before the next batch and on leaving.
class CEventBatch
{
public:
  explicit CEventBatch(const SEventLogApi& api) noexcept : m_api(api) {}
  ~CEventBatch() { Close(); }
  CEventBatch(const CEventBatch&) = delete;
  CEventBatch& operator=(const CEventBatch&) = delete;

  void Close() noexcept
  {
    for (DWORD i = 0; i < m_count; ++i)
      m_api.Close(m_events[i]);
    m_count = 0;
  }
  EVT_HANDLE* Slots() noexcept { return m_events.data(); }
  // Takes over the handles EvtNext filled (never more than the slots).
  void SetCount(DWORD count) noexcept { m_count = std::min<DWORD>(count, CEventCollection::batchSize); }
  DWORD Count() const noexcept { return m_count; }
  EVT_HANDLE operator[](DWORD i) const noexcept { return m_events[i]; }

private:
  const SEventLogApi& m_api;
  std::array<EVT_HANDLE, CEventCollection::batchSize> m_events{};
  DWORD m_count = 0;
};

// Closes the publisher metadata an update opened when it ends, however it ends.
class CPublishersOfUpdate
{
public:
  explicit CPublishersOfUpdate(CPublisherMetadataCache& cache) noexcept : m_cache(cache) {}
  ~CPublishersOfUpdate() { m_cache.Clear(); }
  CPublishersOfUpdate(const CPublishersOfUpdate&) = delete;
  CPublishersOfUpdate& operator=(const CPublishersOfUpdate&) = delete;

private:
  CPublisherMetadataCache& m_cache;
};
} // namespace

// The pool is taken by value as every collection's constructor takes it (a pool handle is a
// shared pointer; it has no move of its own).
CEventCollection::CEventCollection(const std::shared_ptr<CLog>& log, pool threadPool, // NOLINT(performance-*)
                                   const std::shared_ptr<ICancellationToken>& token,
                                   const std::shared_ptr<IHost>& host, const std::shared_ptr<IUser>& user,
                                   const std::shared_ptr<IClass>& cls)
  : CEventCollection(log, threadPool, token, host, user, cls, SEventLogApi{})
{
}

CEventCollection::CEventCollection(const std::shared_ptr<CLog>& log, pool threadPool, // NOLINT(performance-*)
                                   const std::shared_ptr<ICancellationToken>& token,
                                   const std::shared_ptr<IHost>& host, const std::shared_ptr<IUser>& user,
                                   const std::shared_ptr<IClass>& cls, const SEventLogApi& api)
  : CCollectionBase(log, threadPool, token, host, user, cls), m_api(api)
{
}

CEventCollection::~CEventCollection() = default;

void CEventCollection::SetFilter(std::vector<win_events::SFilter>& filters)
{
  // Thrown here, so that the error names the caller's own entry point; nothing is stored.
  if (!AreEventFiltersValid(filters))
    KELDA_THROW(CHResultException(E_INVALIDARG));
  const std::lock_guard lock(m_lock);
  m_filters = filters;
}

std::vector<win_events::SFilter> CEventCollection::GetFilter() const
{
  const std::lock_guard lock(m_lock);
  return m_filters;
}

EventBookmarks CEventCollection::GetBookmarks() const
{
  const std::lock_guard lock(m_lock);
  return m_bookmarks;
}

std::vector<win_events::SBookmark> CEventCollection::SaveBookmarks() const
{
  const std::lock_guard lock(m_lock);
  flushPositionLocked();
  std::vector<win_events::SBookmark> saved;
  saved.reserve(m_bookmarks.size());
  for (const auto& [path, recordId] : m_bookmarks)
  {
    saved.emplace_back(path, recordId);
    if (const auto position = m_positions.find(path); position != m_positions.end())
      renderBookmark(position->second.get(), saved.back().BookmarkXml);
  }
  return saved;
}

void CEventCollection::RestoreBookmarks(const std::vector<win_events::SBookmark>& bookmarks)
{
  EventBookmarks restored;
  std::map<tstring, std::shared_ptr<void>, SChannelPathLess> positions;
  for (const auto& bookmark : bookmarks)
  {
    if (bookmark.Path.empty() || bookmark.RecordId < 0)
      KELDA_THROW(CHResultException(E_INVALIDARG));
    auto& stored = restored[bookmark.Path];
    stored = std::max<__int64>(stored, bookmark.RecordId);
    if (bookmark.BookmarkXml.empty())
      continue;
    std::shared_ptr<void> position = ownBookmark(m_api.CreateBookmark(bookmark.BookmarkXml.c_str()));
    if (!position)
      KELDA_THROW(CHResultException(E_INVALIDARG));
    positions[bookmark.Path] = std::move(position);
  }
  const std::lock_guard lock(m_lock);
  m_bookmarks = std::move(restored);
  m_positions = std::move(positions);
  m_pendingBookmark.reset();
  m_pendingEvent = nullptr;
}

std::shared_ptr<void> CEventCollection::ownBookmark(EVT_HANDLE bookmark) const
{
  if (bookmark == nullptr)
    return nullptr;
  const auto close = m_api.Close;
  return std::shared_ptr<void>(bookmark, [close](void* handle) { close(handle); });
}

bool CEventCollection::renderBookmark(EVT_HANDLE bookmark, tstring& xml) const
{
  DWORD used = 0;
  DWORD properties = 0;
  if (m_api.Render(nullptr, bookmark, EvtRenderBookmark, 0, nullptr, &used, &properties) ||
      GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    return false;
  std::vector<wchar_t> text((used + sizeof(wchar_t) - 1) / sizeof(wchar_t) + 1, L'\0');
  if (!m_api.Render(nullptr, bookmark, EvtRenderBookmark, used, text.data(), &used, &properties))
    return false;
  xml.assign(text.data());
  return true;
}

void CEventCollection::SetUser(const std::shared_ptr<IUser>& user)
{
  CCollectionBase::SetUser(user);
  m_dropSession = true;
}

void CEventCollection::updateImpl()
{
  tstring queryText;
  {
    const std::lock_guard lock(m_lock);
    if (m_filters.empty())
      return;
    m_filterPaths.clear();
    m_lastEventPath.clear();
    for (const auto& filter : m_filters)
      m_filterPaths.push_back(filter.Path);
  }
  if (m_dropSession.exchange(false))
    m_session.reset();
  if (!m_session)
  {
    // The session's failure is reported as this update's, with the last error of the open.
    DWORD error = ERROR_SUCCESS;
    if (!openSession(error))
    {
      if (error == ERROR_SUCCESS)
        KELDA_THROW(FailureWithoutCode(L"EvtOpenSession"));
      KELDA_THROW(CWin32Exception(error));
    }
  }
  m_accounts.clear();

  // A log cleared or wrapped under the query makes its result stale: what was delivered stays
  // delivered, and the query is issued again from the bookmarks, as Microsoft advises for 15011.
  for (unsigned requery = 0;; ++requery)
  {
    restartClearedLogs(m_session.get());
    // Channels of forwarded events go by position, each in a query of its own.
    std::vector<std::pair<tstring, std::shared_ptr<void>>> byPosition;
    {
      const std::lock_guard lock(m_lock);
      EventChannelSet placed;
      for (const auto& [path, bookmark] : m_positions)
      {
        placed.insert(path);
        if (std::any_of(m_filterPaths.begin(), m_filterPaths.end(),
                        [&named = path](const tstring& filterPath) { return SameChannelPath(filterPath, named); }))
          byPosition.emplace_back(path, bookmark);
      }
      queryText = BuildEventQuery(m_filters, m_bookmarks, placed);
    }
    try
    {
      if (!queryText.empty())
      {
        const CEventHandle query(m_api, openQuery(queryText));
        processResults(m_session.get(), query.get());
      }
      for (const auto& [path, bookmark] : byPosition)
        readByPosition(m_session.get(), path, bookmark.get());
      break;
    }
    catch (const CWin32Exception& error)
    {
      if (error.error() != ERROR_EVT_QUERY_RESULT_STALE || requery == staleRequeries)
        throw;
    }
    log()->Info(L"A log changed while it was read; querying again after the last delivered events");
  }
  m_batchSize = batchSize;
}

EVT_HANDLE CEventCollection::openQuery(const tstring& text)
{
  EVT_HANDLE query = m_api.Query(m_session.get(), nullptr, text.c_str(), queryFlags);
  if (query == nullptr)
  {
    const DWORD error = GetLastError();
    // Credentials and the host are checked here: the next update logs on afresh.
    m_session.reset();
    if (error == ERROR_SUCCESS)
      KELDA_THROW(FailureWithoutCode(L"EvtQuery"));
    KELDA_THROW(CHResultException(HRESULT_FROM_WIN32(error)));
  }
  return query;
}

void CEventCollection::readByPosition(EVT_HANDLE session, const tstring& path, EVT_HANDLE bookmark)
{
  tstring text;
  {
    const std::lock_guard lock(m_lock);
    text = BuildPositionQuery(m_filters, path);
  }
  const CEventHandle query(m_api, openQuery(text));
  // On the bookmarked event itself, which was delivered: strict, so that a bookmark whose
  // event is gone fails instead of landing elsewhere.
  DWORD skip = 1;
  if (!m_api.Seek(query.get(), 0, bookmark, 0, EvtSeekRelativeToBookmark | EvtSeekStrict))
  {
    const DWORD error = GetLastError();
    if (error != ERROR_NOT_FOUND)
      KELDA_THROW(CWin32Exception(error));
    // The log was cleared, recreated or wrapped over the bookmarked event: all it holds came later.
    log()->Info(fmt::format(L"Log {} was cleared; reading it from the start", path));
    m_api.Seek(query.get(), 0, nullptr, 0, EvtSeekRelativeToFirst);
    skip = 0;
    const std::lock_guard lock(m_lock);
    m_positions.erase(path);
    m_bookmarks[path] = 0;
  }
  // Events read now place a new bookmark; an empty log is read from record 0 next time.
  processResults(session, query.get(), skip);
}

void CEventCollection::restartClearedLogs(EVT_HANDLE session)
{
  std::vector<std::pair<tstring, __int64>> marked;
  {
    const std::lock_guard lock(m_lock);
    for (const auto& filter : m_filters)
      if (const auto found = m_bookmarks.find(filter.Path);
          found != m_bookmarks.end() && found->second > 0 && m_positions.find(filter.Path) == m_positions.end() &&
          std::none_of(marked.begin(), marked.end(), [&](const auto& m) { return m.first == found->first; }))
        marked.emplace_back(found->first, found->second);
  }
  for (const auto& [path, recordId] : marked)
  {
    __int64 lowest = 0;
    if (!lowestRecordFrom(session, path, recordId, lowest))
      continue;
    if (lowest > recordId + 1)
    {
      // A wrapped log overwrote its oldest chunks: the next record after the bookmark is gone.
      if (const auto reported = m_reportedGaps.find(path);
          reported == m_reportedGaps.end() || reported->second != recordId)
        log()->Info(fmt::format(L"Log {} wrapped: events {} to {} may have been overwritten before they were read",
                                path, recordId + 1, lowest - 1));
      m_reportedGaps[path] = recordId;
      continue;
    }
    // A cleared or recreated log numbers its records from 1 again: none reaches the bookmark.
    if (lowest != 0)
      continue;
    log()->Info(fmt::format(L"Log {} was cleared; reading it from the start", path));
    const std::lock_guard lock(m_lock);
    m_bookmarks[path] = 0;
  }
}

bool CEventCollection::lowestRecordFrom(EVT_HANDLE session, const tstring& path, __int64 recordId, __int64& lowest)
{
  // Asked of the record numbers themselves, not of the last event in file order: damaged or
  // recovered files do not always keep their events in number order. Oldest first, the first
  // event is the lowest number at or above the bookmark.
  const tstring atOrAbove = fmt::format(L"*[System[(EventRecordID>={})]]", recordId);
  const CEventHandle query(m_api, m_api.Query(session, path.c_str(), atOrAbove.c_str(), EvtQueryChannelPath));
  if (query.get() == nullptr)
    return false;
  EVT_HANDLE found = nullptr;
  DWORD returned = 0;
  if (!m_api.Next(query.get(), 1, &found, m_nextTimeout, 0, &returned))
  {
    lowest = 0;
    return GetLastError() == ERROR_NO_MORE_ITEMS;
  }
  if (returned == 0)
    return false;
  const CEventHandle event(m_api, found);
  lowest = recordId;
  try
  {
    m_xmlReader.Read(renderXml(event.get()), m_xmlText);
    lowest = std::max(recordId, WToI64(m_xmlText.EventRecordId));
  }
  catch (const std::exception&) // NOLINT(bugprone-empty-catch): an unreadable event tells only that one exists
  {
  }
  return true;
}

const tstring& CEventCollection::bookmarkPath(const tstring& eventPath) const
{
  // A file is named "file://PATH" in the filter, and its events report PATH.
  static constexpr std::wstring_view fileScheme = L"file://";
  const SChannelPathLess less;
  for (const tstring& path : m_filterPaths)
  {
    std::wstring_view named(path);
    if (named.substr(0, fileScheme.size()) == fileScheme)
      named.remove_prefix(fileScheme.size());
    if (!less(named, eventPath) && !less(eventPath, named))
      return path;
  }
  return eventPath;
}

const tstring& CEventCollection::lastBookmarkPath(const tstring& eventPath)
{
  // Events come in runs from one path: the filter that names it is looked for once per run.
  if (m_lastEventPath.empty() || m_lastEventPath != eventPath)
  {
    m_lastBookmarkPath = bookmarkPath(eventPath);
    m_lastEventPath = eventPath;
  }
  return m_lastBookmarkPath;
}

bool CEventCollection::readEventPath(EVT_HANDLE event, tstring& path)
{
  DWORD used = 0;
  const DWORD bufferBytes = static_cast<DWORD>(m_pathBuffer.size() * sizeof(EVT_VARIANT));
  if (!m_api.GetEventInfo(event, EvtEventPath, bufferBytes, m_pathBuffer.data(), &used))
  {
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
      return false;
    m_pathBuffer.resize((used + sizeof(EVT_VARIANT) - 1) / sizeof(EVT_VARIANT));
    if (!m_api.GetEventInfo(event, EvtEventPath, static_cast<DWORD>(m_pathBuffer.size() * sizeof(EVT_VARIANT)),
                            m_pathBuffer.data(), &used))
      return false;
  }
  const EVT_VARIANT& value = m_pathBuffer.front();
  if (value.Type != EvtVarTypeString || value.StringVal == nullptr || *value.StringVal == L'\0')
    return false;
  path.assign(value.StringVal);
  return true;
}

bool CEventCollection::openSession(DWORD& error)
{
  const std::shared_ptr<IUser> account = user();
  if (!account)
    KELDA_THROW(CKeldaException(L"User is unset"));
  if (!host())
    KELDA_THROW(CKeldaException(L"Host is unset"));
  tstring domain = account->GetDomain();
  tstring userName = account->GetUserName();
  // The process's own account needs no credentials: the session then runs as the process.
  const bool withCredentials = !IsCurrentFullyQualifiedUser(FullyQualifiedUserName(domain, userName));
  CEventLogin login(host()->GetName(), std::move(domain), std::move(userName), account->GetPassword(),
                    withCredentials);
  EVT_HANDLE session = m_api.OpenSession(EvtRpcLogin, login.Get(), 0, 0);
  if (session == nullptr)
  {
    error = GetLastError();
    return false;
  }
  const auto close = m_api.Close;
  m_session = std::shared_ptr<void>(session, [close](void* handle) { close(handle); });
  return true;
}

void CEventCollection::processResults(EVT_HANDLE session, EVT_HANDLE query, DWORD skip)
{
  const std::shared_ptr<ICancellationToken> token = cancellationToken();
  const CPublishersOfUpdate publishers(m_publishers);
  CEventBatch batch(m_api);
  // Destroyed before the batch, however the read leaves: the pending event's handle is still
  // open when its bookmark moves to it.
  struct SFlushOnExit
  {
    const CEventCollection& collection;
    ~SFlushOnExit() { collection.flushPosition(); }
  } const flushOnExit{*this};
  for (;;)
  {
    flushPosition();
    batch.Close();
    DWORD returned = 0;
    if (!m_api.Next(query, m_batchSize, batch.Slots(), m_nextTimeout, 0, &returned))
    {
      const DWORD error = GetLastError();
      if (error == ERROR_NO_MORE_ITEMS)
        return;
      // The reply could not hold that many large events: ask for fewer and go on.
      if (error == RPC_S_INVALID_BOUND && m_batchSize > 1)
      {
        m_batchSize = m_batchSize / 2;
        continue;
      }
      if (error == ERROR_SUCCESS)
        KELDA_THROW(FailureWithoutCode(L"EvtNext"));
      KELDA_THROW(CWin32Exception(error));
    }
    batch.SetCount(returned);
    // A batch that succeeds empty would never reach the end code: there is nothing more.
    if (batch.Count() == 0)
      return;
    for (DWORD i = 0; i < batch.Count(); ++i)
    {
      if (skip > 0)
      {
        --skip;
        continue;
      }
      try
      {
        if (token)
          token->throw_if_cancelled();
        __int64 recordId = 0;
        std::shared_ptr<IRecord> record = createRecord(session, batch[i], m_channel, recordId);
        notifyRecords(Records(&record, 1));
        // Kept under the path read from: the rendered Channel may differ from the query's Path.
        const bool known = readEventPath(batch[i], m_path);
        const tstring& path = known ? lastBookmarkPath(m_path) : m_channel;
        advanceBookmark(path, recordId, batch[i], known && HoldsForwardedEvents(path, m_channel));
      }
      catch (const CInterruptedException&)
      {
        throw;
      }
      catch (const std::exception& error)
      {
        if (get_hresult(error) == cancelledHResult)
          throw;
        // Any other failure skips this one event: the run goes on with the next.
      }
      catch (...) // NOLINT(bugprone-empty-catch): an event that cannot be delivered is skipped
      {
      }
    }
  }
}

void CEventCollection::advanceBookmark(const tstring& channel, __int64 recordId, EVT_HANDLE event, bool forwarded)
{
  const std::lock_guard lock(m_lock);
  const auto found = m_bookmarks.find(channel);
  if (found == m_bookmarks.end())
    m_bookmarks.emplace(channel, recordId);
  else if (recordId > found->second)
    found->second = recordId;
  // Channels read by record number stop here, with no lookup, while no channel goes by position.
  if (m_positions.empty() && !forwarded)
    return;
  auto position = m_positions.find(channel);
  const bool first = position == m_positions.end();
  if (first)
  {
    if (!forwarded)
      return;
    std::shared_ptr<void> bookmark = ownBookmark(m_api.CreateBookmark(nullptr));
    // Without a bookmark the channel stays on record numbers.
    if (!bookmark)
      return;
    position = m_positions.emplace(channel, std::move(bookmark)).first;
  }
  if (first)
  {
    // A channel whose bookmark cannot take its first event stays on record numbers.
    if (!m_api.UpdateBookmark(position->second.get(), event))
      m_positions.erase(position);
    return;
  }
  // Moved once per batch, with the channel's last event (see flushPosition).
  if (m_pendingBookmark != position->second)
    flushPositionLocked();
  m_pendingBookmark = position->second;
  m_pendingEvent = event;
}

void CEventCollection::flushPosition() const
{
  const std::lock_guard lock(m_lock);
  flushPositionLocked();
}

void CEventCollection::flushPositionLocked() const
{
  if (m_pendingEvent == nullptr)
    return;
  // A bookmark that cannot move stays on its last event: read again rather than lost.
  m_api.UpdateBookmark(m_pendingBookmark.get(), m_pendingEvent);
  m_pendingEvent = nullptr;
  m_pendingBookmark.reset();
}

std::wstring_view CEventCollection::renderXml(EVT_HANDLE event)
{
  // Into the buffer as the earlier events left it: most events fit, and take one call. Only when
  // it is too small does the reported size make it grow for a second call.
  DWORD used = 0;
  DWORD properties = 0;
  const auto bytesOf = [this] { return static_cast<DWORD>(m_renderBuffer.size() * sizeof(wchar_t)); };
  if (!m_api.Render(nullptr, event, EvtRenderEventXml, bytesOf(), m_renderBuffer.data(), &used, &properties))
  {
    if (const DWORD error = GetLastError(); error != ERROR_INSUFFICIENT_BUFFER)
      KELDA_THROW(CWin32Exception(error));
    // Room to spare: the next events, often a little larger, fit in one call.
    const std::size_t characters = (used + sizeof(wchar_t) - 1) / sizeof(wchar_t);
    m_renderBuffer.resize(std::max(characters + characters / 2, m_renderBuffer.size()));
    if (!m_api.Render(nullptr, event, EvtRenderEventXml, bytesOf(), m_renderBuffer.data(), &used, &properties))
      KELDA_THROW(CWin32Exception(GetLastError()));
  }
  return {m_renderBuffer.data(), std::min<std::size_t>(used / sizeof(wchar_t), m_renderBuffer.size())};
}

void CEventCollection::reclaimTexts(CRecordOnVector& record)
{
  // The text buffers of a record that came back go to the texts the next event is read into.
  const SEventFieldNames& names = EventFieldNames();
  for (CField& field : record.MutableFields())
  {
    const std::shared_ptr<tstring>& name = field.GetSharedName();
    FieldValue& value = field.GetValue();
    if (name == names.SourceName && value.index() == 0)
      m_xmlText.Provider.swap(std::get<0>(value));
    else if (name == names.InitiatedBy && value.index() == 0)
      m_initiatedBy.swap(std::get<0>(value));
    else if (name == names.Data && value.index() == 4)
      m_xmlText.Data.swap(std::get<4>(value));
  }
}

void CEventCollection::setKeyField(CKey& key, __int64 internalId)
{
  const SEventFieldNames& names = EventFieldNames();
  // The key's one field, made here and held by no one else (the key only hands out copies of
  // its pointers, which would count): its value is written in place of a new field.
  if (const auto& fields = key.GetFields(); fields.size() == 1 && fields.front().use_count() == 1)
  {
    auto* field = static_cast<CField*>(fields.front().get());
    if (field->GetSharedName() == names.InternalId)
    {
      field->GetValue() = internalId;
      return;
    }
  }
  key.ClearFields();
  key.AddField(std::make_shared<CField>(names.InternalId, internalId));
}

std::shared_ptr<CRecordOnVector> CEventCollection::createRecord(EVT_HANDLE session, EVT_HANDLE event,
                                                                tstring& channel, __int64& recordId)
{
  std::unique_ptr<CRecordOnVector> record = m_records->Take();
  if (record)
    reclaimTexts(*record);
  m_xmlReader.Read(renderXml(event), m_xmlText);
  SEventValues values = MakeEventValues(m_xmlText);
  tstring description = FormatEventDescription(m_api, m_publishers.Get(session, values.SourceName), event);
  auto account = m_accounts.find(m_xmlText.UserId);
  if (account == m_accounts.end())
    account = m_accounts.emplace(m_xmlText.UserId, ResolveEventAccount(m_xmlText.UserId)).first;
  m_initiatedBy.assign(account->second);
  recordId = values.RecordId;
  channel = m_xmlText.Channel;

  const SEventFieldNames& names = EventFieldNames();
  if (!record)
    record = std::make_unique<CRecordOnVector>(CKey(), 1, 8);
  // A holder may have detached the fields or changed the type: both are set afresh.
  record->SetType(1);
  CKey& key = record->Key();
  key.SetClass(GetClass());
  setKeyField(key, values.InternalId);
  std::vector<CField>& fields = record->MutableFields();
  if (HasEventFields(fields, names))
  {
    // Only the values are written: the fields and their shared names stay, which spares
    // destroying and making eight fields (and their names' reference counts) per event.
    fields[0].GetValue() = std::move(values.SourceName);
    fields[1].GetValue() = std::move(description);
    fields[2].GetValue() = values.CreatedTime;
    fields[3].GetValue() = std::move(m_initiatedBy);
    fields[4].GetValue() = static_cast<__int64>(values.EventType);
    fields[5].GetValue() = std::move(values.Data);
    fields[6].GetValue() = static_cast<__int64>(values.EventCode);
    fields[7].GetValue() = values.InternalId;
    return CRecordRecycler::Share(m_records, std::move(record));
  }
  fields.clear();
  record->Reserve(8);
  record->AddField(names.SourceName, std::move(values.SourceName));
  record->AddField(names.Description, std::move(description));
  record->AddField(names.CreatedTime, values.CreatedTime);
  record->AddField(names.InitiatedBy, std::move(m_initiatedBy));
  record->AddField(names.EventType, values.EventType);
  record->AddField(names.Data, FieldValue(std::move(values.Data)));
  record->AddField(names.EventCode, values.EventCode);
  record->AddField(names.InternalId, values.InternalId);
  return CRecordRecycler::Share(m_records, std::move(record));
}
} // namespace collector::ni::impl
