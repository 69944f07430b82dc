// Windows body of the host check's platform calls: the computer name from GetComputerNameW; WQL
// is parsed by WMI on the host itself, so a query's syntax is known only where it runs.
#include "run/HostPlatform.h"

#include <windows.h>

namespace natc::run
{
namespace
{
bool NamesEqual(const std::wstring& a, const std::wstring& b)
{
  return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()), TRUE) ==
         CSTR_EQUAL;
}
} // namespace

bool IsThisMachine(const std::wstring& host)
{
  if (host.empty() || host == L"." || NamesEqual(host, L"localhost"))
    return true;
  wchar_t buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  return GetComputerNameW(buffer, &size) && NamesEqual(host, std::wstring(buffer, size));
}

std::optional<std::string> WqlSyntaxProblem(const std::wstring&)
{
  return std::nullopt;
}
} // namespace natc::run
