// The account an event names in its Security/UserID attribute, for the record's "InitiatedBy":
//   ResolveEventAccount(L"S-1-5-18")  -> L"NT AUTHORITY\\SYSTEM"
//   ResolveEventAccount(L"S-1-5-21-1-2-3-1001") -> the SID text itself when no account is known
// The SID is looked up on the local machine (ConvertStringSidToSidW, LookupAccountSidW).
#pragma once

#include "KeldaKernel/Strings.h"

#include <string_view>

namespace collector::ni::impl
{
// "DOMAIN\name", or the name alone when the domain is empty; empty for an empty SID text; the
// SID text unchanged when it cannot be converted or looked up.
tstring ResolveEventAccount(const tstring& sidText);
} // namespace collector::ni::impl
