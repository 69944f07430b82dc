#include "Platform/Sddl.h"
#include "SddlTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace
{
using namespace sddl_test;

struct Account
{
  std::wstring domain;
  std::wstring name;
  SID_NAME_USE use = SidTypeUnknown;
};

// Looks the SID up the way callers do: once for the sizes, once for the names.
bool Lookup(const wchar_t* text, Account& account, DWORD& error)
{
  SidPtr sid = Convert(text);
  if (!sid)
  {
    error = GetLastError();
    return false;
  }
  DWORD nameSize = 0, domainSize = 0;
  SID_NAME_USE use{};
  if (LookupAccountSidW(nullptr, sid.get(), nullptr, &nameSize, nullptr, &domainSize, &use) ||
      GetLastError() != ERROR_INSUFFICIENT_BUFFER)
  {
    error = GetLastError();
    return false;
  }
  std::wstring name(nameSize, L'\0'), domain(domainSize, L'\0');
  if (!LookupAccountSidW(nullptr, sid.get(), name.data(), &nameSize, domain.data(), &domainSize, &use))
  {
    error = GetLastError();
    return false;
  }
  name.resize(nameSize);
  domain.resize(domainSize);
  account = {domain, name, use};
  return true;
}

struct WellKnownCase
{
  const wchar_t* sid;
  const wchar_t* domain;
  const wchar_t* name;
};

class WellKnownSid : public testing::TestWithParam<WellKnownCase>
{
};

TEST_P(WellKnownSid, ResolvesToWindowsNames)
{
  Account account;
  DWORD error = 0;
  ASSERT_TRUE(Lookup(GetParam().sid, account, error)) << error;
  EXPECT_EQ(account.domain, GetParam().domain);
  EXPECT_EQ(account.name, GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Table, WellKnownSid,
                         testing::Values(WellKnownCase{L"S-1-5-18", L"NT AUTHORITY", L"SYSTEM"},
                                         WellKnownCase{L"S-1-5-19", L"NT AUTHORITY", L"LOCAL SERVICE"},
                                         WellKnownCase{L"S-1-5-20", L"NT AUTHORITY", L"NETWORK SERVICE"},
                                         WellKnownCase{L"S-1-5-32-544", L"BUILTIN", L"Administrators"},
                                         WellKnownCase{L"S-1-5-32-545", L"BUILTIN", L"Users"},
                                         WellKnownCase{L"S-1-1-0", L"", L"Everyone"},
                                         WellKnownCase{L"S-1-5-11", L"NT AUTHORITY", L"Authenticated Users"},
                                         WellKnownCase{L"S-1-5-7", L"NT AUTHORITY", L"ANONYMOUS LOGON"},
                                         WellKnownCase{L"SY", L"NT AUTHORITY", L"SYSTEM"}));

TEST(LookupAccountSid, SystemIsAWellKnownGroup)
{
  Account account;
  DWORD error = 0;
  ASSERT_TRUE(Lookup(L"S-1-5-18", account, error));
  EXPECT_EQ(account.use, SidTypeWellKnownGroup);
  ASSERT_TRUE(Lookup(L"S-1-5-32-544", account, error));
  EXPECT_EQ(account.use, SidTypeAlias);
}

TEST(LookupAccountSid, FirstCallReportsSizesWithTerminatingZero)
{
  SidPtr sid = Convert(L"S-1-5-18");
  ASSERT_TRUE(sid);
  DWORD nameSize = 0, domainSize = 0;
  SID_NAME_USE use{};
  SetLastError(0);
  EXPECT_FALSE(LookupAccountSidW(nullptr, sid.get(), nullptr, &nameSize, nullptr, &domainSize, &use));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(nameSize, 7u);    // "SYSTEM" + zero
  EXPECT_EQ(domainSize, 13u); // "NT AUTHORITY" + zero
}

TEST(LookupAccountSid, UnknownSidIsNotMapped)
{
  Account account;
  DWORD error = 0;
  EXPECT_FALSE(Lookup(L"S-1-5-21-3623811015-3361044348-30300820-1013", account, error));
  EXPECT_EQ(error, ERROR_NONE_MAPPED);
}

TEST(ConvertStringSidToSid, NullArgumentsAreInvalidParameters)
{
  PSID sid = nullptr;
  EXPECT_FALSE(ConvertStringSidToSidW(nullptr, &sid));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(ConvertStringSidToSidW(L"S-1-5-18", nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(ConvertStringSidToSid, BinaryLayoutMatchesWindows)
{
  SidPtr sid = Convert(L"S-1-5-21-1-2-3-500");
  ASSERT_TRUE(sid);
  const auto* bytes = static_cast<const BYTE*>(sid.get());
  EXPECT_EQ(bytes[0], 1);
  EXPECT_EQ(bytes[1], 5);
  EXPECT_EQ(bytes[7], 5); // authority 5, big-endian in six bytes
  EXPECT_EQ(GetLengthSid(sid.get()), 8u + 5u * 4u);
  EXPECT_TRUE(IsValidSid(sid.get()));
}
} // namespace
