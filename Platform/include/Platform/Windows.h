// Windows base types and calls (last error, GUIDs, critical sections, ticks) for portable code.
// Include this instead of <windows.h>: on Windows it is the system header, elsewhere our own
// declarations with the same names, values and behaviour.
#pragma once

#ifdef _WIN32
#  ifndef NOMINMAX
#    define NOMINMAX
#  endif
#  include <windows.h>
#  include <rpc.h>
#  include <objbase.h>
#  include "Platform/windows/WinBase.h"
#else
#  include "Platform/linux/WinBase.h"
#endif
