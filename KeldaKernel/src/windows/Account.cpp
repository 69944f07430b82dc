// Windows answer to "is DOMAIN\user the account we run as": the user is GetUserNameW's, the
// domain this computer (".", "localhost" or its name) or the logon domain (USERDOMAIN); names
// compare without case, as Windows account names do.
#include "KeldaKernel/Account.h"

#include "Platform/Windows.h"

#include <climits>
#include <cstdlib>
#include <string>

namespace
{
bool EqualNoCase(std::wstring_view a, std::wstring_view b)
{
  constexpr auto limit = static_cast<std::size_t>(INT_MAX);
  if (a.size() != b.size() || a.size() > limit)
    return false;
  return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
         CSTR_EQUAL;
}

std::wstring ComputerName()
{
  wchar_t buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  return GetComputerNameW(buffer, &size) ? std::wstring(buffer, size) : std::wstring();
}

std::wstring UserName()
{
  wchar_t buffer[257] = {};
  DWORD size = 257;
  // size counts the terminating null on success.
  return GetUserNameW(buffer, &size) && size > 0 ? std::wstring(buffer, size - 1) : std::wstring();
}

bool IsThisDomain(std::wstring_view domain)
{
  if (domain == L"." || EqualNoCase(domain, L"localhost"))
    return true;
  const std::wstring computer = ComputerName();
  if (!computer.empty() && EqualNoCase(domain, computer))
    return true;
  const wchar_t* logonDomain = _wgetenv(L"USERDOMAIN");
  return logonDomain != nullptr && *logonDomain != L'\0' && EqualNoCase(domain, logonDomain);
}
} // namespace

bool IsCurrentFullyQualifiedUser(const tstring& domainAndUser)
{
  const auto separator = domainAndUser.find(L'\\');
  if (separator == tstring::npos)
    return false;
  const std::wstring_view text(domainAndUser);
  const std::wstring_view user = text.substr(separator + 1);
  if (user.empty() || !IsThisDomain(text.substr(0, separator)))
    return false;
  const std::wstring current = UserName();
  return !current.empty() && EqualNoCase(user, current);
}
