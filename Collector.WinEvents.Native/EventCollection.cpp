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

namespace collector::ni::impl
{
namespace
{
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

void CEventCollection::updateImpl()
{
  tstring queryText;
  {
    const std::lock_guard lock(m_lock);
    if (m_filters.empty())
      return;
    queryText = BuildEventQuery(m_filters, m_bookmarks);
  }
  if (!m_session)
  {
    // The session's failure is reported as this update's, with the last error of the open.
    DWORD error = ERROR_SUCCESS;
    if (!openSession(error))
      KELDA_THROW(CWin32Exception(error));
  }
  m_accounts.clear();

  const CEventHandle query(m_api, m_api.Query(m_session.get(), nullptr, queryText.c_str(), queryFlags));
  if (query.get() == nullptr)
    KELDA_THROW(CHResultException(HRESULT_FROM_WIN32(GetLastError())));
  processResults(m_session.get(), query.get());
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
        advanceBookmark(m_channel, recordId);
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
