// Who the process runs as, to decide whether explicit credentials are needed.
#pragma once

#include "KeldaKernel/Strings.h"

// True when "DOMAIN\user" names the account this process runs as (compared without case).
// On Linux the domain is this machine's host name (or "." / "localhost") and the user the
// effective user's login name.
bool IsCurrentFullyQualifiedUser(const tstring& domainAndUser);
