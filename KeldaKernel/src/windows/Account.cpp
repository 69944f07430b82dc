// Windows answers for the account check: this machine is ".", "localhost", the computer name or
// the logon domain (USERDOMAIN); the process runs as GetUserNameW's account.
#include "../AccountPlatform.h"

#include <cstdlib>

namespace kelda::account
{
namespace
{
std::wstring ComputerName()
{
  wchar_t buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  return GetComputerNameW(buffer, &size) ? std::wstring(buffer, size) : std::wstring();
}
} // namespace

std::wstring CurrentUserName()
{
  wchar_t buffer[257] = {};
  DWORD size = 257;
  // size counts the terminating null on success.
  return GetUserNameW(buffer, &size) && size > 0 ? std::wstring(buffer, size - 1) : std::wstring();
}

bool IsThisMachine(std::wstring_view domain)
{
  if (domain == L"." || NamesEqual(domain, L"localhost"))
    return true;
  const std::wstring computer = ComputerName();
  if (!computer.empty() && NamesEqual(domain, computer))
    return true;
  const wchar_t* logonDomain = _wgetenv(L"USERDOMAIN");
  return logonDomain != nullptr && *logonDomain != L'\0' && NamesEqual(domain, logonDomain);
}
} // namespace kelda::account
