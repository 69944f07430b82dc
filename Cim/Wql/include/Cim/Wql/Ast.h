// The parsed form of a WQL query: SELECT list, FROM class, and an optional WHERE condition tree.
// Produced by cim::wql::Parse; checked against a class declaration by cim::wql::BoundQuery.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace cim::wql
{
// A constant of the query text: NULL, TRUE/FALSE, an integer (signed or, above INT64_MAX,
// unsigned), a real, or a quoted string.
using Literal = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::wstring>;

enum class CompareOp
{
  Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual
};

// One side of a comparison: a property name or a literal.
struct Operand
{
  bool isProperty = false;
  std::wstring property;
  Literal literal;
};

struct Expr
{
  enum class Kind
  {
    And, Or, Not, Compare, Like, IsNull
  };
  Kind kind = Kind::Compare;
  // And / Or: two or more children; Not: one child.
  std::vector<Expr> children;
  // Compare: left op right. Like: left is the property, right the pattern. IsNull: left.
  CompareOp op = CompareOp::Equal;
  Operand left;
  Operand right;
  // IS NOT NULL, NOT LIKE.
  bool negated = false;
};

struct Query
{
  bool selectAll = false;
  std::vector<std::wstring> properties; // as written, in order (empty for "*")
  std::wstring className;
  std::unique_ptr<Expr> where;          // null without WHERE
};
} // namespace cim::wql
