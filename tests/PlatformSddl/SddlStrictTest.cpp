// Where Wine's advapi32 deviates from Windows (label wine_gap, left out under Wine): the size
// LookupAccountSidW asks for counts the terminating zero
// (https://learn.microsoft.com/en-us/windows/win32/api/winbase/nf-winbase-lookupaccountsidw),
// ConvertStringSidToSidW refuses malformed text with ERROR_INVALID_SID
// (https://learn.microsoft.com/en-us/windows/win32/api/sddl/nf-sddl-convertstringsidtosidw), and an
// identifier authority of 2^32 or more is written in hex (MS-DTYP 2.4.2.1,
// https://learn.microsoft.com/en-us/openspecs/windows_protocols/ms-dtyp/c92a27b1-c772-4fa7-a432-15df5f1b66a1).
#include "Platform/Sddl.h"
#include "SddlTestSupport.h"

#include <gtest/gtest.h>

namespace
{
using namespace sddl_test;

TEST(LookupAccountSid, OneCharacterTooFewIsStillTooSmall)
{
  SidPtr sid = Convert(L"S-1-5-18");
  ASSERT_TRUE(sid);
  wchar_t name[6] = {}, domain[13] = {};
  DWORD nameSize = 6, domainSize = 13;
  SID_NAME_USE use{};
  EXPECT_FALSE(LookupAccountSidW(nullptr, sid.get(), name, &nameSize, domain, &domainSize, &use));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(nameSize, 7u);
}

TEST(ConvertStringSidToSid, MalformedTextIsAnInvalidSid)
{
  for (const wchar_t* text : {L"", L"S", L"S-", L"S-1", L"S-1-", L"S-2-5-18", L"X-1-5-18", L"S-1-5-", L"S-1-5--18",
                              L"S-1-5-18x", L"S-1-5-4294967296", L"S-1-281474976710656", L"NT AUTHORITY\\SYSTEM",
                              L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"})
  {
    PSID sid = nullptr;
    SetLastError(0);
    EXPECT_FALSE(ConvertStringSidToSidW(text, &sid)) << text;
    EXPECT_EQ(GetLastError(), ERROR_INVALID_SID) << text;
    EXPECT_EQ(sid, nullptr);
  }
}

TEST(ConvertSidToStringSid, RoundTripsIncludingLargeAuthorities)
{
  for (const wchar_t* text : {L"S-1-5-18", L"S-1-5-21-3623811015-3361044348-30300820-1013", L"S-1-0x123456789ABC-7",
                              L"S-1-16-12288"})
  {
    SidPtr sid = Convert(text);
    ASSERT_TRUE(sid) << text;
    LPWSTR back = nullptr;
    ASSERT_TRUE(ConvertSidToStringSidW(sid.get(), &back));
    EXPECT_STREQ(back, text);
    LocalFree(back);
  }
}
} // namespace
