#include "EventAccount.h"

#include "Platform/Sddl.h"

#include <fmt/xchar.h>

#include <memory>
#include <vector>

namespace collector::ni::impl
{
namespace
{
struct CLocalFree
{
  void operator()(void* memory) const noexcept { LocalFree(memory); }
};
using LocalSid = std::unique_ptr<void, CLocalFree>;
} // namespace

tstring ResolveEventAccount(const tstring& sidText)
{
  if (sidText.empty())
    return {};
  PSID rawSid = nullptr;
  if (!ConvertStringSidToSidW(sidText.c_str(), &rawSid))
    return sidText;
  const LocalSid sid(rawSid);

  // First call: the sizes of the two names, terminating zeros included.
  DWORD nameSize = 0;
  DWORD domainSize = 0;
  SID_NAME_USE use{};
  if (!LookupAccountSidW(nullptr, sid.get(), nullptr, &nameSize, nullptr, &domainSize, &use) &&
      GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    return sidText;
  std::vector<wchar_t> name(nameSize + 1, L'\0');
  std::vector<wchar_t> domain(domainSize + 1, L'\0');
  if (!LookupAccountSidW(nullptr, sid.get(), name.data(), &nameSize, domain.data(), &domainSize, &use))
    return sidText;

  const std::wstring_view account(name.data());
  const std::wstring_view domainName(domain.data());
  if (domainName.empty())
    return tstring(account);
  return fmt::format(L"{}\\{}", domainName, account);
}
} // namespace collector::ni::impl
