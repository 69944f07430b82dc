// The logon name of the process's account from GetUserNameW.
#include "../CurrentUser.h"

#include <windows.h>

std::wstring TestProcessUserName()
{
  wchar_t buffer[257] = {};
  DWORD size = 257;
  // size counts the terminating null on success.
  return GetUserNameW(buffer, &size) && size > 0 ? std::wstring(buffer, size - 1) : std::wstring();
}
