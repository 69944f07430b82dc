// Linux answer to "is DOMAIN\user the account we run as": the domain is this machine and
// the user the effective user, compared without case as Windows account names are.
#include "KeldaKernel/Account.h"

#include <pwd.h>
#include <unistd.h>

#include "Platform/Windows.h"

#include <climits>
#include <vector>

namespace
{
bool EqualNoCase(std::wstring_view a, std::wstring_view b)
{
  // Account and machine names are short; anything beyond an int's range is no name of ours.
  constexpr auto limit = static_cast<std::size_t>(INT_MAX);
  if (a.size() != b.size() || a.size() > limit)
    return false;
  return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
         CSTR_EQUAL;
}

std::wstring HostName()
{
  char buffer[HOST_NAME_MAX + 1] = {};
  if (gethostname(buffer, sizeof(buffer) - 1) != 0)
    return {};
  return kelda::FromUtf8(buffer);
}

std::wstring EffectiveUserName()
{
  long size = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
    return {};
  return kelda::FromUtf8(found->pw_name);
}

bool IsThisMachine(std::wstring_view domain)
{
  if (domain == L"." || EqualNoCase(domain, L"localhost"))
    return true;
  const std::wstring host = HostName();
  if (host.empty())
    return false;
  // Windows names machines by their short (NetBIOS-like) name; accept that and the full name.
  const std::wstring_view shortHost = std::wstring_view(host).substr(0, host.find(L'.'));
  return EqualNoCase(domain, host) || EqualNoCase(domain, shortHost);
}
} // namespace

bool IsCurrentFullyQualifiedUser(const tstring& domainAndUser)
{
  const auto separator = domainAndUser.find(L'\\');
  if (separator == tstring::npos)
    return false;
  const std::wstring_view text(domainAndUser);
  const std::wstring_view user = text.substr(separator + 1);
  if (user.empty() || !IsThisMachine(text.substr(0, separator)))
    return false;
  const std::wstring current = EffectiveUserName();
  return !current.empty() && EqualNoCase(user, current);
}
