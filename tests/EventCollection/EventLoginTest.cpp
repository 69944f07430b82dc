// The login record of the event log session: credentials only for another account.
#include "CurrentUser.h"
#include "EventLogin.h"

#include "KeldaKernel/Account.h"

#include <gtest/gtest.h>

namespace
{
using namespace collector::ni::impl;

TEST(EventLogin, AnotherAccountPassesItsCredentials)
{
  CEventLogin login(L"server01", L"CORP", L"bob", L"secret", true);
  const EVT_RPC_LOGIN* record = login.Get();
  ASSERT_NE(record->Server, nullptr);
  EXPECT_STREQ(record->Server, L"server01");
  ASSERT_NE(record->User, nullptr);
  EXPECT_STREQ(record->User, L"bob");
  ASSERT_NE(record->Domain, nullptr);
  EXPECT_STREQ(record->Domain, L"CORP");
  ASSERT_NE(record->Password, nullptr);
  EXPECT_STREQ(record->Password, L"secret");
  EXPECT_EQ(record->Flags, 1u);
}

TEST(EventLogin, TheProcessAccountPassesNoCredentials)
{
  CEventLogin login(L"server01", L"CORP", L"bob", L"secret", false);
  const EVT_RPC_LOGIN* record = login.Get();
  EXPECT_STREQ(record->Server, L"server01");
  EXPECT_EQ(record->User, nullptr);
  EXPECT_EQ(record->Domain, nullptr);
  EXPECT_EQ(record->Password, nullptr);
  EXPECT_EQ(record->Flags, static_cast<DWORD>(EvtRpcLoginAuthNegotiate));
}

TEST(EventLogin, FullyQualifiedNameIsDomainBackslashUser)
{
  EXPECT_EQ(FullyQualifiedUserName(L"CORP", L"bob"), L"CORP\\bob");
  EXPECT_EQ(FullyQualifiedUserName(L"", L"bob"), L"\\bob");
  // The kernel knows the process's own account under this machine's name.
  const std::wstring user = TestProcessUserName();
  ASSERT_FALSE(user.empty());
  EXPECT_TRUE(IsCurrentFullyQualifiedUser(FullyQualifiedUserName(L".", user)));
  EXPECT_FALSE(IsCurrentFullyQualifiedUser(FullyQualifiedUserName(L"CORP", L"nobody-here")));
}
} // namespace
