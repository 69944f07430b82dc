// SID text conversion and account lookup (ConvertStringSidToSidW, LookupAccountSidW) for portable
// code. On Windows this is advapi32; elsewhere our own bodies resolve the well-known SIDs to the
// names Windows gives them. Free a converted SID with LocalFree (Platform/Windows.h).
#pragma once

#include "Platform/Windows.h"

#ifdef _WIN32
#  include <sddl.h>
#else
#  include "Platform/linux/Sddl.h"
#endif
