// Windows-side counterparts of the few helpers that Platform/linux/WinBase.h adds to the Windows
// API for portable code.
#pragma once

#include <windows.h>

// Puts back a saved last-error code (a logger's guard restores the caller's code).
inline void RestoreLastError(DWORD code) noexcept
{
  SetLastError(code);
}
