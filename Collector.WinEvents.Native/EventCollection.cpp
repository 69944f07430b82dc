#include "EventCollection.h"

#include "EventAccount.h"
#include "EventDescription.h"
#include "EventLogin.h"

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
  std::vector<win_events::SBookmark> saved;
  saved.reserve(m_bookmarks.size());
  for (const auto& [path, recordId] : m_bookmarks)
    saved.push_back({path, recordId});
  return saved;
}

void CEventCollection::RestoreBookmarks(const std::vector<win_events::SBookmark>& bookmarks)
{
  EventBookmarks restored;
  for (const auto& bookmark : bookmarks)
  {
    if (bookmark.Path.empty() || bookmark.RecordId < 0)
      KELDA_THROW(CHResultException(E_INVALIDARG));
    auto& stored = restored[bookmark.Path];
    stored = std::max<__int64>(stored, bookmark.RecordId);
  }
  const std::lock_guard lock(m_lock);
  m_bookmarks = std::move(restored);
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

  restartClearedLogs(m_session.get());
  {
    const std::lock_guard lock(m_lock);
    queryText = BuildEventQuery(m_filters, m_bookmarks);
  }
  const CEventHandle query(m_api, m_api.Query(m_session.get(), nullptr, queryText.c_str(), queryFlags));
  if (query.get() == nullptr)
  {
    const DWORD error = GetLastError();
    // Credentials and the host are checked here: the next update logs on afresh.
    m_session.reset();
    if (error == ERROR_SUCCESS)
      KELDA_THROW(FailureWithoutCode(L"EvtQuery"));
    KELDA_THROW(CHResultException(HRESULT_FROM_WIN32(error)));
  }
  processResults(m_session.get(), query.get());
  m_batchSize = batchSize;
}

void CEventCollection::restartClearedLogs(EVT_HANDLE session)
{
  std::vector<std::pair<tstring, __int64>> marked;
  {
    const std::lock_guard lock(m_lock);
    for (const auto& filter : m_filters)
      if (const auto found = m_bookmarks.find(filter.Path);
          found != m_bookmarks.end() && found->second > 0 &&
          std::none_of(marked.begin(), marked.end(), [&](const auto& m) { return m.first == found->first; }))
        marked.emplace_back(found->first, found->second);
  }
  for (const auto& [path, recordId] : marked)
  {
    // A cleared or recreated log numbers its records from 1 again: none reaches the bookmark.
    if (!isBelowBookmark(session, path, recordId))
      continue;
    log()->Info(fmt::format(L"Log {} was cleared; reading it from the start", path));
    const std::lock_guard lock(m_lock);
    m_bookmarks[path] = 0;
  }
}

bool CEventCollection::isBelowBookmark(EVT_HANDLE session, const tstring& path, __int64 recordId)
{
  // Asked of the record numbers themselves, not of the last event in file order: damaged or
  // recovered files do not always keep their events in number order.
  const tstring atOrAbove = fmt::format(L"*[System[(EventRecordID>={})]]", recordId);
  const CEventHandle query(m_api, m_api.Query(session, path.c_str(), atOrAbove.c_str(), EvtQueryChannelPath));
  if (query.get() == nullptr)
    return false;
  EVT_HANDLE found = nullptr;
  DWORD returned = 0;
  if (m_api.Next(query.get(), 1, &found, m_nextTimeout, 0, &returned))
  {
    if (returned != 0)
      m_api.Close(found);
    return false;
  }
  return GetLastError() == ERROR_NO_MORE_ITEMS;
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

void CEventCollection::processResults(EVT_HANDLE session, EVT_HANDLE query)
{
  const std::shared_ptr<ICancellationToken> token = cancellationToken();
  CEventBatch batch(m_api);
  for (;;)
  {
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
      try
      {
        if (token)
          token->throw_if_cancelled();
        __int64 recordId = 0;
        std::shared_ptr<IRecord> record = createRecord(session, batch[i], m_channel, recordId);
        notifyRecords(Records(&record, 1));
        // Kept under the path read from: the rendered Channel may differ from the query's Path.
        advanceBookmark(readEventPath(batch[i], m_path) ? bookmarkPath(m_path) : m_channel, recordId);
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

void CEventCollection::advanceBookmark(const tstring& channel, __int64 recordId)
{
  const std::lock_guard lock(m_lock);
  const auto found = m_bookmarks.find(channel);
  if (found == m_bookmarks.end())
    m_bookmarks.emplace(channel, recordId);
  else if (recordId > found->second)
    found->second = recordId;
}

std::shared_ptr<CRecordOnVector> CEventCollection::createRecord(EVT_HANDLE session, EVT_HANDLE event,
                                                                tstring& channel, __int64& recordId)
{
  // The size first, then the text into a buffer of that many bytes.
  DWORD used = 0;
  DWORD properties = 0;
  if (m_api.Render(nullptr, event, EvtRenderEventXml, 0, nullptr, &used, &properties))
    KELDA_THROW(CWin32Exception(ERROR_INVALID_DATA));
  if (const DWORD error = GetLastError(); error != ERROR_INSUFFICIENT_BUFFER)
    KELDA_THROW(CWin32Exception(error));
  const std::size_t characters = (used + sizeof(wchar_t) - 1) / sizeof(wchar_t);
  if (m_renderBuffer.size() < characters)
    m_renderBuffer.resize(characters);
  if (!m_api.Render(nullptr, event, EvtRenderEventXml, used, m_renderBuffer.data(), &used, &properties))
    KELDA_THROW(CWin32Exception(GetLastError()));
  const std::wstring_view xml(m_renderBuffer.data(), std::min<std::size_t>(used / sizeof(wchar_t), characters));

  m_xmlReader.Read(xml, m_xmlText);
  SEventValues values = MakeEventValues(m_xmlText);
  tstring description = FormatEventDescription(m_api, session, values.SourceName, event);
  auto account = m_accounts.find(m_xmlText.UserId);
  if (account == m_accounts.end())
    account = m_accounts.emplace(m_xmlText.UserId, ResolveEventAccount(m_xmlText.UserId)).first;
  tstring initiatedBy = account->second;
  recordId = values.RecordId;
  channel = m_xmlText.Channel;

  const SEventFieldNames& names = EventFieldNames();
  CKey key(GetClass(), {std::make_shared<CField>(names.InternalId, values.InternalId)});
  auto record = std::make_shared<CRecordOnVector>(std::move(key), 1, 8);
  record->AddField(names.SourceName, std::move(values.SourceName));
  record->AddField(names.Description, std::move(description));
  record->AddField(names.CreatedTime, values.CreatedTime);
  record->AddField(names.InitiatedBy, std::move(initiatedBy));
  record->AddField(names.EventType, values.EventType);
  record->AddField(names.Data, FieldValue(std::move(values.Data)));
  record->AddField(names.EventCode, values.EventCode);
  record->AddField(names.InternalId, values.InternalId);
  return record;
}
} // namespace collector::ni::impl
