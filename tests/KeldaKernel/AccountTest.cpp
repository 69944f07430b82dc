#include "KeldaKernel/Account.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include <cwctype>

namespace
{
std::wstring CurrentUser()
{
  const passwd* entry = getpwuid(geteuid());
  return entry == nullptr ? std::wstring() : kelda::FromUtf8(entry->pw_name);
}

std::wstring Upper(std::wstring text)
{
  for (auto& c : text)
    c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
  return text;
}
} // namespace

TEST(Account, CurrentUserOnThisMachine)
{
  const std::wstring user = CurrentUser();
  ASSERT_FALSE(user.empty());
  char host[256] = {};
  ASSERT_EQ(gethostname(host, sizeof(host) - 1), 0);
  EXPECT_TRUE(IsCurrentFullyQualifiedUser(kelda::FromUtf8(host) + L"\\" + user));
  EXPECT_TRUE(IsCurrentFullyQualifiedUser(Upper(kelda::FromUtf8(host)) + L"\\" + Upper(user)));
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
  EXPECT_FALSE(IsCurrentFullyQualifiedUser(L""));
}
