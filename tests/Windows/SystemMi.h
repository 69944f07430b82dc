// Whether this system has mi.dll (Wine has none): the Windows-only tests skip what needs it.
#pragma once

#include <windows.h>

inline bool SystemHasMi()
{
  const HMODULE module = LoadLibraryExW(L"mi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr)
    return false;
  FreeLibrary(module);
  return true;
}
