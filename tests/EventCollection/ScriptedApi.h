// A scripted Event Log API for the collection tests: a query returns the events the test
// scripted (their XML), in the order given, in batches of what EvtNext asks; every call is
// counted. Handles are addresses inside a block reserved for them, never real objects, and
// each stands for its offset in that block. One script per process: tests reset it in SetUp.
#pragma once

#include "EventLogApi.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace events_test
{
struct SScriptedApi
{
  std::vector<std::wstring> events;      // the XML of each event, in delivery order
  std::set<std::size_t> renderFailures;  // events whose rendering fails
  bool openFails = false;
  DWORD openError = 0;
  bool queryFails = false;
  DWORD queryError = 0;
  // EvtNext fails with this code once `nextFailsAfter` events were handed out (0: never).
  std::size_t nextFailsAfter = 0;
  DWORD nextError = 0;
  // EvtNext asked for more events than this fails with RPC_S_INVALID_BOUND (0: no bound).
  DWORD replyLimit = 0;
  // EvtNext fails once with ERROR_EVT_QUERY_RESULT_STALE when it reaches each of these events
  // (indexes into `events`), as when the log is cleared or wraps under the query.
  std::set<std::size_t> staleAt;
  // A query of the list starts after the events its "EventRecordID>N" bound leaves out, as the
  // service reads a log: otherwise every query starts at the first event.
  bool honourBounds = false;
  // The path EvtGetEventInfo reports per event (by index); events beyond it have none.
  std::vector<std::wstring> paths;
  // The newest record number of the channel a query of one channel reads (0: it is empty);
  // without one such queries fail as for a missing channel.
  std::optional<long long> newest;

  // Observations.
  std::size_t cursor = 0;
  int sessionsOpened = 0;
  std::vector<std::wstring> queries;
  std::vector<std::wstring> newestQueries; // paths of the queries of one channel
  long long newestBound = 0;               // the lowest record number the last such query asks for
  std::vector<DWORD> nextBatchSizes;  // what each EvtNext asked for
  std::vector<DWORD> nextReturned;    // what each successful EvtNext gave
  std::vector<DWORD> nextTimeouts;
  std::vector<DWORD> queryFlags;
  int nextCalls = 0;
  int renderCalls = 0;
  std::multiset<std::uintptr_t> closed;
  std::wstring lastUser;
  bool lastHadCredentials = false;
};

// A minimal event of a channel with a record number.
inline std::wstring EventXml(const std::wstring& channel, long long recordId, int eventId = 1)
{
  return L"<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System><Provider Name='P'/>"
         L"<EventID>" + std::to_wstring(eventId) + L"</EventID><Level>4</Level>"
         L"<TimeCreated SystemTime='2024-05-01T10:20:30.1234567Z'/><EventRecordID>" + std::to_wstring(recordId) +
         L"</EventRecordID><Channel>" + channel + L"</Channel></System><EventData><Data>" +
         std::to_wstring(recordId) + L"</Data></EventData></Event>";
}

inline SScriptedApi g_api;

constexpr std::uintptr_t scriptedSession = 0x10;
constexpr std::uintptr_t scriptedQuery = 0x20;
constexpr std::uintptr_t scriptedNewestQuery = 0x30;
constexpr std::uintptr_t scriptedNewestEvent = 0x40;
constexpr std::uintptr_t scriptedFirstEvent = 0x1000;

// Room for the session, the query and this many events.
constexpr std::size_t scriptedEventLimit = 0x10000;
inline std::array<char, scriptedFirstEvent + scriptedEventLimit> g_handleSpace{};

inline EVT_HANDLE AsHandle(std::uintptr_t value)
{
  return &g_handleSpace.at(value);
}

inline std::uintptr_t HandleValue(EVT_HANDLE handle)
{
  if (handle == nullptr)
  {
    return 0;
  }
  return static_cast<std::uintptr_t>(static_cast<const char*>(handle) - g_handleSpace.data());
}

inline EVT_HANDLE ScriptedOpenSession(EVT_LOGIN_CLASS, PVOID login, DWORD, DWORD) noexcept
{
  const auto* rpc = static_cast<const EVT_RPC_LOGIN*>(login);
  g_api.lastHadCredentials = rpc->User != nullptr;
  g_api.lastUser = rpc->User != nullptr ? rpc->User : L"";
  if (g_api.openFails)
  {
    SetLastError(g_api.openError);
    return nullptr;
  }
  ++g_api.sessionsOpened;
  return AsHandle(scriptedSession);
}

// The record number in an event's XML.
inline long long RecordIdOf(const std::wstring& xml)
{
  const std::wstring tag = L"<EventRecordID>";
  const std::size_t at = xml.find(tag);
  return at == std::wstring::npos ? 0 : std::stoll(xml.substr(at + tag.size()));
}

// N of the first "EventRecordID&gt;N" in a query list (0 for none).
inline long long QueryBound(const std::wstring& query)
{
  const std::wstring bound = L"EventRecordID&gt;";
  const std::size_t at = query.find(bound);
  return at == std::wstring::npos ? 0 : std::stoll(query.substr(at + bound.size()));
}

inline EVT_HANDLE ScriptedQuery(EVT_HANDLE, LPCWSTR path, LPCWSTR query, DWORD flags) noexcept
{
  if (path != nullptr)
  {
    g_api.newestQueries.emplace_back(path);
    const std::wstring text = query;
    const std::size_t bound = text.find(L">=");
    g_api.newestBound = bound == std::wstring::npos ? 0 : std::stoll(text.substr(bound + 2));
    if (!g_api.newest || g_api.queryFails)
    {
      SetLastError(g_api.queryFails ? g_api.queryError : ERROR_EVT_CHANNEL_NOT_FOUND);
      return nullptr;
    }
    return AsHandle(scriptedNewestQuery);
  }
  g_api.queries.emplace_back(query);
  g_api.queryFlags.push_back(flags);
  if (g_api.queryFails)
  {
    SetLastError(g_api.queryError);
    return nullptr;
  }
  g_api.cursor = 0;
  if (g_api.honourBounds)
    while (g_api.cursor < g_api.events.size() && RecordIdOf(g_api.events[g_api.cursor]) <= QueryBound(query))
      ++g_api.cursor;
  return AsHandle(scriptedQuery);
}

inline BOOL ScriptedNext(EVT_HANDLE query, DWORD size, PEVT_HANDLE events, DWORD timeout, DWORD, PDWORD returned) noexcept
{
  if (HandleValue(query) == scriptedNewestQuery)
  {
    *returned = 0;
    if (g_api.newest.value_or(0) < g_api.newestBound || g_api.newest.value_or(0) == 0)
    {
      SetLastError(ERROR_NO_MORE_ITEMS);
      return FALSE;
    }
    events[0] = AsHandle(scriptedNewestEvent);
    *returned = 1;
    return TRUE;
  }
  ++g_api.nextCalls;
  g_api.nextBatchSizes.push_back(size);
  g_api.nextTimeouts.push_back(timeout);
  if (g_api.nextFailsAfter != 0 && g_api.cursor >= g_api.nextFailsAfter)
  {
    SetLastError(g_api.nextError);
    return FALSE;
  }
  if (g_api.replyLimit != 0 && size > g_api.replyLimit)
  {
    SetLastError(RPC_S_INVALID_BOUND);
    return FALSE;
  }
  if (g_api.staleAt.erase(g_api.cursor) != 0)
  {
    SetLastError(ERROR_EVT_QUERY_RESULT_STALE);
    return FALSE;
  }
  if (g_api.cursor >= g_api.events.size())
  {
    *returned = 0;
    SetLastError(ERROR_NO_MORE_ITEMS);
    return FALSE;
  }
  // A batch ends where the log changes.
  const auto stale = g_api.staleAt.lower_bound(g_api.cursor);
  const std::size_t end = stale == g_api.staleAt.end() ? g_api.events.size() : std::min(*stale, g_api.events.size());
  DWORD count = 0;
  while (count < size && g_api.cursor < end)
    events[count++] = AsHandle(scriptedFirstEvent + g_api.cursor++);
  *returned = count;
  g_api.nextReturned.push_back(count);
  return TRUE;
}

inline BOOL ScriptedRender(EVT_HANDLE, EVT_HANDLE event, DWORD flags, DWORD size, PVOID buffer, PDWORD used,
                           PDWORD count) noexcept
{
  ++g_api.renderCalls;
  const bool newest = HandleValue(event) == scriptedNewestEvent;
  const std::size_t index = HandleValue(event) - scriptedFirstEvent;
  if (flags != EvtRenderEventXml ||
      (!newest && (index >= g_api.events.size() || g_api.renderFailures.count(index) != 0)))
  {
    SetLastError(ERROR_EVT_INVALID_EVENT_DATA);
    return FALSE;
  }
  const std::wstring xml = newest ? EventXml(L"System", g_api.newest.value_or(0)) : g_api.events[index];
  *used = static_cast<DWORD>((xml.size() + 1) * sizeof(wchar_t));
  *count = 0;
  if (buffer == nullptr || size < *used)
  {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  auto* out = static_cast<wchar_t*>(buffer);
  std::copy(xml.begin(), xml.end(), out);
  out[xml.size()] = L'\0';
  return TRUE;
}

inline EVT_HANDLE ScriptedOpenPublisher(EVT_HANDLE, LPCWSTR, LPCWSTR, LCID, DWORD) noexcept
{
  SetLastError(ERROR_FILE_NOT_FOUND);
  return nullptr;
}

inline BOOL ScriptedGetEventInfo(EVT_HANDLE event, EVT_EVENT_PROPERTY_ID id, DWORD size, PEVT_VARIANT buffer,
                                 PDWORD used) noexcept
{
  const std::size_t index = HandleValue(event) - scriptedFirstEvent;
  if (id != EvtEventPath || index >= g_api.paths.size())
  {
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
  }
  const std::wstring& path = g_api.paths[index];
  const std::size_t bytes = sizeof(EVT_VARIANT) + (path.size() + 1) * sizeof(wchar_t);
  *used = static_cast<DWORD>(bytes);
  if (buffer == nullptr || size < bytes)
  {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  auto* text = reinterpret_cast<wchar_t*>(buffer + 1);
  std::copy(path.begin(), path.end(), text);
  text[path.size()] = L'\0';
  *buffer = EVT_VARIANT{};
  buffer->StringVal = text;
  buffer->Type = EvtVarTypeString;
  return TRUE;
}

inline BOOL ScriptedClose(EVT_HANDLE handle) noexcept
{
  g_api.closed.insert(HandleValue(handle));
  return TRUE;
}

inline collector::ni::impl::SEventLogApi ScriptedTable()
{
  collector::ni::impl::SEventLogApi api;
  api.OpenSession = &ScriptedOpenSession;
  api.Query = &ScriptedQuery;
  api.Next = &ScriptedNext;
  api.Render = &ScriptedRender;
  api.OpenPublisherMetadata = &ScriptedOpenPublisher;
  api.GetEventInfo = &ScriptedGetEventInfo;
  api.Close = &ScriptedClose;
  return api;
}

} // namespace events_test
