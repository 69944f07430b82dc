// EvtQuery and EvtNext over the channel files of a session's host.
#include "Hosts.h"
#include "ResultSet.h"

#include "Evtx/Query/Utf.h"

#include <new>
#include <optional>

namespace
{
using natc::winevt::ChannelCursor;

constexpr DWORD kKnownFlags = EvtQueryChannelPath | EvtQueryFilePath | EvtQueryForwardDirection |
                              EvtQueryReverseDirection | EvtQueryTolerateQueryErrors;
constexpr std::wstring_view kFileScheme = L"file://";

// A path of the query without its file:// scheme, which marks a file among channels.
std::wstring_view WithoutScheme(std::wstring_view path)
{
  return path.substr(0, kFileScheme.size()) == kFileScheme ? path.substr(kFileScheme.size()) : path;
}

// Opens the file behind one path of the query; 0 on success, else the error to report.
DWORD OpenChannel(const std::string& directory, std::wstring_view path, bool filePaths, evtx::File& file)
{
  std::optional<std::string> location;
  if (WithoutScheme(path).size() != path.size())
  {
    path = WithoutScheme(path);
    filePaths = true;
  }
  if (filePaths)
    location = evtx::query::ToUtf8(path);
  else
    location = natc::winevt::FindChannelFile(directory, path);
  if (!location)
    return ERROR_EVT_CHANNEL_NOT_FOUND;
  switch (file.Open(*location))
  {
  case evtx::Status::Ok: return ERROR_SUCCESS;
  case evtx::Status::IoError: return filePaths ? ERROR_FILE_NOT_FOUND : ERROR_EVT_CHANNEL_NOT_FOUND;
  default: return ERROR_EVT_INVALID_EVENT_DATA;
  }
}
} // namespace

EVT_HANDLE EvtQuery(EVT_HANDLE session, LPCWSTR path, LPCWSTR query, DWORD flags) noexcept
{
  const bool filePaths = (flags & EvtQueryFilePath) != 0;
  const bool reverse = (flags & EvtQueryReverseDirection) != 0;
  if ((flags & ~kKnownFlags) != 0 || (filePaths && (flags & EvtQueryChannelPath) != 0) ||
      (reverse && (flags & EvtQueryForwardDirection) != 0))
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  try
  {
    std::string directory;
    if (const DWORD error = natc::winevt::Connect(session, directory); error != ERROR_SUCCESS)
    {
      SetLastError(error);
      return nullptr;
    }

    const bool tolerate = (flags & EvtQueryTolerateQueryErrors) != 0;
    const std::wstring_view text = query != nullptr ? std::wstring_view(query) : std::wstring_view(L"*");
    const std::wstring_view channel = path != nullptr ? std::wstring_view(path) : std::wstring_view();
    std::optional<evtx::query::Query> compiled;
    try
    {
      compiled.emplace(evtx::query::Query::Parse(text, channel, tolerate));
    }
    catch (const evtx::query::QueryError&)
    {
      // An XPath needs the channel it applies to.
      const bool missingChannel = channel.empty() && !text.empty() && text.front() != L'<';
      SetLastError(missingChannel ? ERROR_INVALID_PARAMETER : ERROR_EVT_INVALID_QUERY);
      return nullptr;
    }

    std::vector<std::optional<evtx::File>> files(compiled->Channels().size());
    for (std::size_t c = 0; c < files.size(); ++c)
    {
      evtx::File file;
      const DWORD error = OpenChannel(directory, compiled->Channels()[c], filePaths, file);
      if (error == ERROR_SUCCESS)
      {
        files[c].emplace(std::move(file));
        continue;
      }
      // Tolerating query errors, a missing channel spoils only the Queries that read it.
      if (!tolerate)
      {
        SetLastError(error);
        return nullptr;
      }
      compiled->DropQueriesReading(c);
    }
    std::vector<ChannelCursor> cursors;
    for (std::size_t c = 0; c < files.size(); ++c)
      if (files[c] && compiled->Reads(c))
        cursors.emplace_back(std::move(*files[c]), c, reverse, compiled->MinRecordId(c),
                             std::wstring(WithoutScheme(compiled->Channels()[c])));
    evtx::query::EvalContext context;
    context.nowFileTime = evtx::query::CurrentFileTime();
    return natc::winevt::Register(
      std::make_shared<natc::winevt::ResultSetObject>(std::move(*compiled), std::move(cursors), context));
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
}

BOOL EvtNext(EVT_HANDLE resultSet, DWORD eventsSize, PEVT_HANDLE events, DWORD timeout, DWORD flags,
             PDWORD returned) noexcept
{
  if (events == nullptr || returned == nullptr || eventsSize == 0 || flags != 0)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  *returned = 0;
  const auto results = natc::winevt::Find<natc::winevt::ResultSetObject>(resultSet);
  if (!results)
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  try
  {
    const ULONGLONG deadline = timeout == INFINITE ? 0 : GetTickCount64() + timeout;
    std::function<bool()> deadlinePassed;
    if (timeout != INFINITE)
      deadlinePassed = [deadline] { return GetTickCount64() >= deadline; };
    std::vector<std::shared_ptr<natc::winevt::EventObject>> found;
    found.reserve(eventsSize);
    using Shortfall = natc::winevt::ResultSetObject::Shortfall;
    Shortfall shortfall = Shortfall::None;
    results->Next(eventsSize, found, deadlinePassed, shortfall);
    for (auto& event : found)
      events[(*returned)++] = natc::winevt::Register(std::move(event));
    if (*returned > 0)
      return TRUE;
    SetLastError(shortfall == Shortfall::TimedOut ? ERROR_TIMEOUT
                 : shortfall == Shortfall::Stale  ? ERROR_EVT_QUERY_RESULT_STALE
                                                  : ERROR_NO_MORE_ITEMS);
    return FALSE;
  }
  catch (const std::bad_alloc&)
  {
    for (DWORD i = 0; i < *returned; ++i)
      EvtClose(events[i]);
    *returned = 0;
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
}
