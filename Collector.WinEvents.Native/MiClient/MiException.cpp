#include "MiException.h"

#include <fmt/xchar.h>

#include <array>
#include <cstdint>

namespace
{
// Meanings of the codes 1 to 28 of the MI result enumeration, indexed by code; the codes 18 and
// 19 have none. The texts are the program's own and kept as they are, "CIM Server" included.
constexpr std::array<const wchar_t*, 29> kTexts = {
  nullptr,
  L"A general error occurred, not covered by a more specific error code",
  L"Access to a CIM resource is not available to the client",
  L"The target namespace does not exist",
  L"One or more parameter values passed to the method are not valid",
  L"The specified class does not exist",
  L"The requested object cannot be found",
  L"The requested operation is not supported",
  L"The operation cannot be invoked because the class has subclasses",
  L"The operation cannot be invoked because the class has instances",
  L"The operation cannot be invoked because the superclass does not exist",
  L"The operation cannot be invoked because an object already exists",
  L"The specified property does not exist",
  L"The value supplied is not compatible with the type",
  L"The query language is not recognized or supported",
  L"The query is not valid for the specified query language",
  L"The extrinsic method cannot be invoked",
  L"The specified extrinsic method does not exist",
  nullptr,
  nullptr,
  L"The specified namespace is not empty",
  L"The enumeration identified by the specified context is invalid",
  L"The specified operation timeout is not supported by the CIM Server",
  L"The Pull operation has been abandoned",
  L"The attempt to abandon a concurrent Pull operation failed",
  L"Using a filter in the enumeration is not supported by the CIM server",
  L"The CIM server does not support continuation on error",
  L"The operation failed because server limits were exceeded",
  L"The CIM server is shutting down and cannot process the operation",
};
} // namespace

tstring GetMiResultText(std::int32_t code)
{
  if (code >= 0 && static_cast<std::size_t>(code) < kTexts.size() && kTexts[static_cast<std::size_t>(code)] != nullptr)
  {
    return kTexts[static_cast<std::size_t>(code)];
  }
  return fmt::format(L"MI error {}", code);
}

tstring FormatMiErrorMessage(std::int32_t code, std::wstring_view function)
{
  if (function.empty())
  {
    return GetMiResultText(code);
  }
  return fmt::format(L"{} ({})", function, GetMiResultText(code));
}

CMiException::CMiException(MI_Result code, std::wstring_view function)
  // The base is initialised here, not thrown: the checker mistakes the base initialiser for a temporary.
  : CKeldaException(init_t{}, FormatMiErrorMessage(static_cast<std::int32_t>(code), function), tstring(), 1) // NOLINT(bugprone-throw-keyword-missing)
{
}
