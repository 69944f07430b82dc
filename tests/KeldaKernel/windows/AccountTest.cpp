#include "KeldaKernel/Account.h"

#include "Platform/Windows.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
std::wstring CurrentUser()
{
  wchar_t buffer[257] = {};
  DWORD size = 257;
  return GetUserNameW(buffer, &size) && size > 0 ? std::wstring(buffer, size - 1) : std::wstring();
}

std::wstring Computer()
{
  wchar_t buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  return GetComputerNameW(buffer, &size) ? std::wstring(buffer, size) : std::wstring();
}
} // namespace

TEST(Account, CurrentUserOnThisMachine)
{
  const std::wstring user = CurrentUser();
  ASSERT_FALSE(user.empty());
  EXPECT_TRUE(IsCurrentFullyQualifiedUser(Computer() + L"\\" + user));
  EXPECT_TRUE(IsCurrentFullyQualifiedUser(L".\\" + user));
  EXPECT_TRUE(IsCurrentFullyQualifiedUser(L"LOCALHOST\\" + user));
}

TEST(Account, OtherUsersAndDomainsAreNotCurrent)
{
  const std::wstring user = CurrentUser();
  EXPECT_FALSE(IsCurrentFullyQualifiedUser(L".\\" + user + L"x"));
  EXPECT_FALSE(IsCurrentFullyQualifiedUser(L"SOMEDOMAIN-THAT-IS-NOT-US\\" + user));
  EXPECT_FALSE(IsCurrentFullyQualifiedUser(user));
  EXPECT_FALSE(IsCurrentFullyQualifiedUser(L".\\"));
}
