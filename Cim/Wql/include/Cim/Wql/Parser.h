// Parses WQL text into a Query:
//   SELECT (* | name[, name...]) FROM class [WHERE condition]
// with AND, OR, NOT, parentheses, = <> != < <= > >=, LIKE, IS [NOT] NULL, and string, number and
// boolean literals. Keywords, class and property names are case-insensitive.
// Malformed text, an empty select list among it, throws cim::Error with MI_RESULT_INVALID_QUERY
// (15), the MI code of WMI's WBEM_E_INVALID_QUERY ("Query was not syntactically valid",
// https://learn.microsoft.com/en-us/windows/win32/wmisdk/wmi-error-constants).
#pragma once

#include "Cim/Wql/Ast.h"

#include <string_view>

namespace cim::wql
{
inline constexpr std::uint32_t kInvalidQuery = 15;
inline constexpr std::uint32_t kInvalidNamespace = 3;
inline constexpr std::uint32_t kInvalidClass = 5;
inline constexpr std::uint32_t kFailed = 1;

Query Parse(std::wstring_view text);
} // namespace cim::wql
