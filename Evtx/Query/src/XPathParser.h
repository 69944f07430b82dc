// Parses one event XPath ("*[System[(EventID=4624) and TimeCreated[timediff(@SystemTime) <= 86400000]]]")
// into a syntax tree. The text is already free of XML entities. Throws QueryError when malformed.
#pragma once

#include "Expr.h"

#include <memory>
#include <string_view>

namespace evtx::query
{
// The whole selection: a location path that starts with * or Event.
std::unique_ptr<Expr> ParseEventXPath(std::wstring_view text);
} // namespace evtx::query
