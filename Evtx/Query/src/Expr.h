// The syntax tree of an event XPath: location paths of child, attribute and text() steps with
// predicates, comparisons, and/or/not(), literals, numbers, band(), timediff() and position().
#pragma once

#include "Number.h"

#include <memory>
#include <string>
#include <vector>

namespace evtx::query
{
enum class CompareOp
{
  Eq,
  Ne,
  Lt,
  Le,
  Gt,
  Ge
};

// The operator that gives the same test with its operands swapped: a < b is b > a.
constexpr CompareOp Mirror(CompareOp op) noexcept
{
  switch (op)
  {
  case CompareOp::Lt: return CompareOp::Gt;
  case CompareOp::Le: return CompareOp::Ge;
  case CompareOp::Gt: return CompareOp::Lt;
  case CompareOp::Ge: return CompareOp::Le;
  default: return op;
  }
}

struct Expr;

struct Step
{
  enum class Kind
  {
    Element,   // a child element; an empty name is the wildcard *
    Attribute, // @name, only as the last step
    Text,      // text(), only as the last step
    Self       // .
  };
  Kind kind = Kind::Element;
  std::wstring name;
  std::vector<std::unique_ptr<Expr>> predicates;
};

struct Path
{
  std::vector<Step> steps;
};

struct Expr
{
  enum class Kind
  {
    Or,
    And,
    Not,
    Compare,
    Path,
    Literal,
    Number,
    Boolean,
    Band,
    TimeDiff,
    Position
  };
  Kind kind = Kind::Boolean;
  CompareOp op = CompareOp::Eq;
  // Operands of Or, And, Compare, Band, TimeDiff (right may be null for a one-argument timediff), Not.
  std::unique_ptr<Expr> left;
  std::unique_ptr<Expr> right;
  Path path;
  std::wstring literal;
  Number number;
  bool boolean = false;
};
} // namespace evtx::query
