// Parses WQL text into a Query:
//   SELECT (* | name[, name...]) FROM class [WHERE condition]
// with AND, OR, NOT, parentheses, = <> != < <= > >=, LIKE, IS [NOT] NULL, and string, number and
// boolean literals. Keywords, class and property names are case-insensitive.
// Malformed text throws cim::Error with MI_RESULT_INVALID_QUERY (15).
#pragma once

#include "Cim/Wql/Ast.h"

#include <string_view>

namespace cim::wql
{
inline constexpr std::uint32_t kInvalidQuery = 15;
inline constexpr std::uint32_t kInvalidNamespace = 3;
inline constexpr std::uint32_t kInvalidClass = 5;
inline constexpr std::uint32_t kNoSuchProperty = 12;
inline constexpr std::uint32_t kFailed = 1;

Query Parse(std::wstring_view text);
} // namespace cim::wql
