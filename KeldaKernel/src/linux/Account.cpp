// Linux answers for the account check: this machine is its host name (short or full), "." or
// "localhost"; the process runs as the effective user.
#include "../AccountPlatform.h"

#include "KeldaKernel/Strings.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace kelda::account
{
namespace
{
std::wstring HostName()
{
  char buffer[HOST_NAME_MAX + 1] = {};
  if (gethostname(buffer, sizeof(buffer) - 1) != 0)
    return {};
  return kelda::FromUtf8(buffer);
}
} // namespace

std::wstring CurrentUserName()
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
  if (domain == L"." || NamesEqual(domain, L"localhost"))
    return true;
  const std::wstring host = HostName();
  if (host.empty())
    return false;
  // Windows names machines by their short (NetBIOS-like) name; accept that and the full name.
  const std::wstring_view shortHost = std::wstring_view(host).substr(0, host.find(L'.'));
  return NamesEqual(domain, host) || NamesEqual(domain, shortHost);
}
} // namespace kelda::account
