#include "Platform/Windows.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

// Each thread reads its code right after the other thread's change: starting or joining a thread
// may itself reset the caller's code (TlsGetValue clears it on success, and thread libraries call
// it: https://learn.microsoft.com/en-us/windows/win32/api/processthreadsapi/nf-processthreadsapi-tlsgetvalue).
// The threads hand over through an atomic alone, which calls nothing that sets a code.
TEST(LastError, IsPerThread)
{
  std::atomic<int> step{0};
  DWORD seenByOtherThread = 12345;
  std::thread other([&] {
    while (step.load() != 1)
    {
    }
    seenByOtherThread = GetLastError();
    SetLastError(ERROR_ACCESS_DENIED);
    step.store(2);
  });
  SetLastError(ERROR_INVALID_SID);
  step.store(1);
  while (step.load() != 2)
  {
  }
  const DWORD seenByThisThread = GetLastError();
  other.join();
  EXPECT_NE(seenByOtherThread, static_cast<DWORD>(ERROR_INVALID_SID));
  EXPECT_EQ(seenByThisThread, static_cast<DWORD>(ERROR_INVALID_SID));
}

TEST(HResult, FromWin32FollowsTheWindowsRule)
{
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_CANCELLED), static_cast<HRESULT>(0x800704C7u));
  EXPECT_EQ(HRESULT_FROM_WIN32(0), 0);
  EXPECT_EQ(HRESULT_FROM_WIN32(0x12345678u), static_cast<HRESULT>(0x80075678u));
  EXPECT_EQ(HRESULT_FROM_WIN32(static_cast<unsigned long>(E_FAIL)), E_FAIL);
}

TEST(Guid, CreatedUuidsDifferAndFormatWithBracesInUpperCase)
{
  GUID a{}, b{};
  ASSERT_EQ(UuidCreate(&a), RPC_S_OK);
  ASSERT_EQ(UuidCreate(&b), RPC_S_OK);
  EXPECT_NE(a, b);
  const GUID known{0x88D96A05, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
  wchar_t text[39];
  ASSERT_EQ(StringFromGUID2(known, text, 39), 39);
  EXPECT_EQ(std::wstring(text), L"{88D96A05-F192-11D4-A65F-0040963251E5}");
  EXPECT_EQ(StringFromGUID2(known, text, 38), 0);
}

TEST(CriticalSection, IsRecursive)
{
  CRITICAL_SECTION section;
  ASSERT_TRUE(InitializeCriticalSectionEx(&section, 0, 0));
  EnterCriticalSection(&section);
  EXPECT_TRUE(TryEnterCriticalSection(&section));
  LeaveCriticalSection(&section);
  LeaveCriticalSection(&section);
  bool otherThreadEntered = false;
  std::thread([&] {
    otherThreadEntered = TryEnterCriticalSection(&section) != FALSE;
    if (otherThreadEntered)
      LeaveCriticalSection(&section);
  }).join();
  EXPECT_TRUE(otherThreadEntered);
  DeleteCriticalSection(&section);
}

TEST(CompareStringOrdinal, IgnoresCaseOnlyWhenAsked)
{
  EXPECT_EQ(CompareStringOrdinal(L"_total", -1, L"_Total", -1, TRUE), CSTR_EQUAL);
  EXPECT_EQ(CompareStringOrdinal(L"_total", -1, L"_Total", -1, FALSE), CSTR_GREATER_THAN);
  EXPECT_EQ(CompareStringOrdinal(L"_Total", -1, L"_Totals", -1, TRUE), CSTR_LESS_THAN);
  EXPECT_EQ(CompareStringOrdinal(L"_Totals", 6, L"_TOTAL", 6, TRUE), CSTR_EQUAL);
}
