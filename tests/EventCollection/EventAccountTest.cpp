// "InitiatedBy": the account of the event's SID, with the SID text as the fall-back.
#include "EventAccount.h"

#include <gtest/gtest.h>

namespace
{
using collector::ni::impl::ResolveEventAccount;

TEST(EventAccount, WellKnownSidsResolveToDomainAndName)
{
  EXPECT_EQ(ResolveEventAccount(L"S-1-5-18"), L"NT AUTHORITY\\SYSTEM");
  EXPECT_EQ(ResolveEventAccount(L"S-1-5-20"), L"NT AUTHORITY\\NETWORK SERVICE");
  EXPECT_EQ(ResolveEventAccount(L"S-1-5-32-544"), L"BUILTIN\\Administrators");
}

TEST(EventAccount, AnEmptyDomainGivesTheNameAlone)
{
  EXPECT_EQ(ResolveEventAccount(L"S-1-1-0"), L"Everyone");
}

TEST(EventAccount, AnUnknownAccountKeepsTheSidText)
{
  EXPECT_EQ(ResolveEventAccount(L"S-1-5-21-3623811015-3361044348-30300820-1013"),
            L"S-1-5-21-3623811015-3361044348-30300820-1013");
}

TEST(EventAccount, TextThatIsNoSidIsKept)
{
  EXPECT_EQ(ResolveEventAccount(L"not a sid"), L"not a sid");
  EXPECT_EQ(ResolveEventAccount(L"S-1-"), L"S-1-");
}

TEST(EventAccount, NoSidGivesNothing)
{
  EXPECT_EQ(ResolveEventAccount(L""), L"");
}
} // namespace
