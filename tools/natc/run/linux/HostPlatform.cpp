// Linux body of the host check's platform calls: the host name from gethostname, WQL parsed by
// the MI API's own parser (the one that runs the queries here).
#include "run/HostPlatform.h"

#include "Cim/Model.h"
#include "Cim/Wql/Parser.h"
#include "KeldaKernel/Strings.h"

#include <unistd.h>

#include <algorithm>
#include <cwctype>

namespace natc::run
{
namespace
{
std::wstring Lower(std::wstring text)
{
  std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return std::towlower(static_cast<wint_t>(c)); });
  return text;
}
} // namespace

bool IsThisMachine(const std::wstring& host)
{
  const std::wstring name = Lower(host);
  if (name.empty() || name == L"." || name == L"localhost")
  {
    return true;
  }
  char own[256] = {};
  return gethostname(own, sizeof own - 1) == 0 && name == Lower(kelda::FromUtf8(own));
}

std::optional<std::string> WqlSyntaxProblem(const std::wstring& query)
{
  try
  {
    cim::wql::Parse(query);
    return std::nullopt;
  }
  catch (const cim::Error& error)
  {
    return kelda::ToUtf8(error.message);
  }
}
} // namespace natc::run
