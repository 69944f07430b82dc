// Helpers for the Event Log API tests: a temporary host directory, owning event handles, and
// reading a whole result set.
#pragma once

#include "Platform/WinEvt.h"
#include "TestSupport/TempDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace wevtapi_test
{
// A directory of channel files that lives as long as the object.
class TempHost
{
public:
  const std::filesystem::path& Path() const { return m_directory.Path(); }
  std::string File(const std::string& name) const { return (Path() / name).string(); }
  std::wstring WidePath() const { return Path().wstring(); }

private:
  TempDirectory m_directory{"natc-wevtapi"};
};

struct HandleCloser
{
  void operator()(void* handle) const
  {
    if (handle != nullptr)
      EvtClose(handle);
  }
};
using Handle = std::unique_ptr<void, HandleCloser>;

inline Handle OpenSession(const std::wstring& server)
{
  std::wstring name = server;
  EVT_RPC_LOGIN login{name.data(), nullptr, nullptr, nullptr, EvtRpcLoginAuthNegotiate};
  return Handle(EvtOpenSession(EvtRpcLogin, &login, 0, 0));
}

// Renders an event (or with EvtRenderBookmark a bookmark) with the two-call size protocol.
inline std::wstring RenderXml(EVT_HANDLE fragment, DWORD flags = EvtRenderEventXml)
{
  DWORD used = 0, count = 0;
  if (EvtRender(nullptr, fragment, flags, 0, nullptr, &used, &count) || GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    return L"<render failed>";
  std::vector<wchar_t> buffer(used / sizeof(wchar_t));
  if (!EvtRender(nullptr, fragment, flags, used, buffer.data(), &used, &count))
    return L"<render failed>";
  return std::wstring(buffer.data());
}

// The text between <EventRecordID> and </EventRecordID>.
inline std::uint64_t RecordIdOf(const std::wstring& xml)
{
  const auto start = xml.find(L"<EventRecordID>");
  if (start == std::wstring::npos)
    return 0;
  return std::wcstoull(xml.c_str() + start + 15, nullptr, 10);
}

// Every event of a result set, as record numbers, read in batches; lastError gets the code that
// ended the loop (ERROR_NO_MORE_ITEMS when all went well).
inline std::vector<std::uint64_t> ReadAll(EVT_HANDLE query, DWORD batch, DWORD timeout, DWORD& lastError)
{
  std::vector<std::uint64_t> ids;
  std::vector<EVT_HANDLE> events(batch);
  for (;;)
  {
    DWORD returned = 0;
    if (!EvtNext(query, batch, events.data(), timeout, 0, &returned))
    {
      lastError = GetLastError();
      return ids;
    }
    for (DWORD i = 0; i < returned; ++i)
    {
      ids.push_back(RecordIdOf(RenderXml(events[i])));
      EvtClose(events[i]);
    }
  }
}

inline std::vector<std::uint64_t> ReadAll(EVT_HANDLE query)
{
  DWORD lastError = 0;
  auto ids = ReadAll(query, 100, INFINITE, lastError);
  EXPECT_EQ(lastError, ERROR_NO_MORE_ITEMS);
  return ids;
}
} // namespace wevtapi_test
