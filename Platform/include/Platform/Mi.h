// The Windows Management Infrastructure client API (MI) for portable code.
// Include this instead of <mi.h>: on Windows it is the system header (link mi.lib); elsewhere our
// own declarations of the same types, constants and inline wrappers, served by platform_mi, which
// answers WQL queries from the CIM providers of this machine (and of hosts attached by tests).
#pragma once

#ifdef _WIN32
#  include <windows.h>
#  include <mi.h>
#else
#  include "Platform/linux/Mi.h"
#endif
