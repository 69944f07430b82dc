// The Windows Management Infrastructure client API (MI) for portable code.
// Include this instead of <mi.h>: with MSVC it is the system header (link mi.lib); elsewhere our
// own declarations of the same types, constants and inline wrappers (Platform/MiApi.h). On Linux
// platform_mi answers WQL queries from the CIM providers of this machine (and of hosts attached by
// tests); with MinGW-w64 it binds the system's mi.dll at run time.
#pragma once

#if defined(_WIN32) && !defined(__MINGW32__)
#  include <windows.h>
#  include <mi.h>
#else
#  include "Platform/MiApi.h"
#endif
