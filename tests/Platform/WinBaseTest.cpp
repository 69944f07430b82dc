#include "Platform/Windows.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

TEST(LastError, IsPerThread)
{
  SetLastError(ERROR_INVALID_SID);
  DWORD seenByOtherThread = 12345;
  std::thread([&] { seenByOtherThread = GetLastError(); }).join();
  EXPECT_EQ(seenByOtherThread, 0u);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_SID);
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
