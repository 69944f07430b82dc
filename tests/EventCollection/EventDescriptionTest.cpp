// The description protocol of EvtOpenPublisherMetadata / EvtFormatMessage, over a scripted
// table of functions.
#include "EventDescription.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using namespace collector::ni::impl;

// What the scripted functions do; reset by each test.
struct SScript
{
  bool openFails = false;
  // First call (no buffer): succeed, or fail with this code.
  bool firstSucceeds = false;
  DWORD firstError = ERROR_INSUFFICIENT_BUFFER;
  // Second call: succeed, or fail with this code; the text written in either case.
  bool secondSucceeds = true;
  DWORD secondError = 0;
  std::wstring message = L"The service entered the running state.";
  // Size the second call reports (0: the message's size).
  DWORD secondUsed = 0;
  int opened = 0;
  int closed = 0;
  std::vector<DWORD> bufferSizes;
  std::wstring provider;
};
SScript g_script;

EVT_HANDLE ScriptedOpen(EVT_HANDLE, LPCWSTR provider, LPCWSTR, LCID, DWORD) noexcept
{
  g_script.provider = provider;
  if (g_script.openFails)
  {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return nullptr;
  }
  ++g_script.opened;
  return reinterpret_cast<EVT_HANDLE>(0x1234);
}

BOOL ScriptedFormat(EVT_HANDLE, EVT_HANDLE, DWORD, DWORD, PEVT_VARIANT, DWORD flags, DWORD size, LPWSTR buffer,
                    PDWORD used) noexcept
{
  EXPECT_EQ(flags, static_cast<DWORD>(EvtFormatMessageEvent));
  g_script.bufferSizes.push_back(size);
  const auto needed = static_cast<DWORD>(g_script.message.size() + 1);
  if (buffer == nullptr)
  {
    *used = needed;
    if (g_script.firstSucceeds)
      return TRUE;
    SetLastError(g_script.firstError);
    return FALSE;
  }
  const std::size_t count = std::min<std::size_t>(size, g_script.message.size());
  std::copy_n(g_script.message.begin(), count, buffer);
  *used = g_script.secondUsed != 0 ? g_script.secondUsed : needed;
  if (g_script.secondSucceeds)
    return TRUE;
  SetLastError(g_script.secondError);
  return FALSE;
}

BOOL ScriptedClose(EVT_HANDLE) noexcept
{
  ++g_script.closed;
  return TRUE;
}

class EventDescription : public testing::Test
{
protected:
  void SetUp() override
  {
    g_script = SScript{};
    api.OpenPublisherMetadata = &ScriptedOpen;
    api.FormatMessage = &ScriptedFormat;
    api.Close = &ScriptedClose;
  }

  tstring Format() { return FormatEventDescription(api, nullptr, L"Service Control Manager", nullptr); }

  SEventLogApi api;
};

TEST_F(EventDescription, TheWholeBufferIsTheTextTerminatingZeroIncluded)
{
  const tstring text = Format();
  EXPECT_EQ(text, std::wstring(L"The service entered the running state.") + L'\0');
  EXPECT_EQ(g_script.provider, L"Service Control Manager");
  EXPECT_EQ(g_script.bufferSizes, (std::vector<DWORD>{0, static_cast<DWORD>(g_script.message.size() + 1)}));
  EXPECT_EQ(g_script.closed, g_script.opened);
}

TEST_F(EventDescription, NoMetadataGivesAnEmptyText)
{
  g_script.openFails = true;
  EXPECT_EQ(Format(), L"");
  EXPECT_TRUE(g_script.bufferSizes.empty());
}

TEST_F(EventDescription, AFirstCallThatSucceedsLeavesTheTextEmpty)
{
  g_script.firstSucceeds = true;
  EXPECT_EQ(Format(), L"");
  EXPECT_EQ(g_script.bufferSizes.size(), 1u);
  EXPECT_EQ(g_script.closed, 1);
}

TEST_F(EventDescription, AFirstCallFailingOtherwiseGivesTheFailureText)
{
  g_script.firstError = ERROR_EVT_MESSAGE_NOT_FOUND;
  EXPECT_EQ(Format(), L"Event description display failure");
  EXPECT_EQ(g_script.closed, 1);
}

TEST_F(EventDescription, AnUnresolvedInsertIsAccepted)
{
  g_script.secondSucceeds = false;
  g_script.secondError = ERROR_EVT_UNRESOLVED_VALUE_INSERT;
  g_script.message = L"Logon of %1";
  EXPECT_EQ(Format(), std::wstring(L"Logon of %1") + L'\0');
}

TEST_F(EventDescription, TheBufferReplacesTheFailureTextOfTheSecondCall)
{
  g_script.secondSucceeds = false;
  g_script.secondError = ERROR_EVT_MESSAGE_ID_NOT_FOUND;
  // The buffer is zero-filled before the call; what the call wrote is what stays.
  g_script.message = L"partial";
  const tstring text = Format();
  EXPECT_NE(text, L"Event description display failure");
  EXPECT_EQ(text, std::wstring(L"partial") + L'\0');
}

TEST_F(EventDescription, ASizeBeyondTheBufferIsCutToIt)
{
  g_script.secondSucceeds = false;
  g_script.secondError = ERROR_INSUFFICIENT_BUFFER;
  g_script.secondUsed = 1000;
  const tstring text = Format();
  EXPECT_EQ(text.size(), g_script.message.size() + 1);
}
} // namespace
