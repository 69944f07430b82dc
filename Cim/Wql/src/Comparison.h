// The values WHERE compares, reduced to three domains: numbers (every integer and real type,
// booleans, char16), strings (compared without regard to case) and date-times (by DateTimeKey).
#pragma once

#include "DmtfDateTime.h"

#include "Cim/Model.h"
#include "Cim/Wql/Ast.h"

#include <optional>
#include <string>
#include <variant>

namespace cim::wql
{
struct Number
{
  bool integral = true;
  __int128 integer = 0;
  long double real = 0;
};

using Comparand = std::variant<Number, std::wstring, DateTimeKey>;

// The literal as a comparand for a property of the given type; nullopt when it cannot be one
// (a number against a string property, text that is no number against a number property...).
std::optional<Comparand> FromLiteral(const Literal& literal, Type propertyType);
Comparand FromValue(const Value& value);
// <0, 0, >0; nullopt when the two cannot be ordered (different domains, NaN, timestamp/interval).
std::optional<int> Compare(const Comparand& left, const Comparand& right);
bool Holds(CompareOp op, int order);
} // namespace cim::wql
