#include "Number.h"

#include "Expr.h"

#include <cmath>
#include <limits>

namespace evtx::query
{
namespace
{
bool IsSpace(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

// -1, 0 or 1 for exact integers given as sign and magnitude.
int CompareIntegral(const Number& a, const Number& b)
{
  const bool aNeg = a.negative && a.magnitude != 0;
  const bool bNeg = b.negative && b.magnitude != 0;
  if (aNeg != bNeg)
    return aNeg ? -1 : 1;
  int order = a.magnitude < b.magnitude ? -1 : (a.magnitude > b.magnitude ? 1 : 0);
  return aNeg ? -order : order;
}

bool Apply(int order, CompareOp op)
{
  switch (op)
  {
  case CompareOp::Eq: return order == 0;
  case CompareOp::Ne: return order != 0;
  case CompareOp::Lt: return order < 0;
  case CompareOp::Le: return order <= 0;
  case CompareOp::Gt: return order > 0;
  case CompareOp::Ge: return order >= 0;
  }
  return false;
}
} // namespace

Number Number::FromInteger(std::int64_t v)
{
  Number n;
  n.valid = true;
  n.integral = true;
  n.negative = v < 0;
  n.magnitude = v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
  n.value = static_cast<double>(v);
  return n;
}

Number Number::FromUnsigned(std::uint64_t v)
{
  Number n;
  n.valid = true;
  n.integral = true;
  n.magnitude = v;
  n.value = static_cast<double>(v);
  return n;
}

Number ParseNumber(std::wstring_view text)
{
  while (!text.empty() && IsSpace(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back()))
    text.remove_suffix(1);
  Number n;
  if (text.empty())
    return n;
  bool negative = false;
  if (text.front() == L'-')
  {
    negative = true;
    text.remove_prefix(1);
  }
  if (text.size() > 2 && text[0] == L'0' && (text[1] == L'x' || text[1] == L'X'))
  {
    std::uint64_t value = 0;
    for (std::size_t i = 2; i < text.size(); ++i)
    {
      const wchar_t c = text[i];
      unsigned digit = 0;
      if (c >= L'0' && c <= L'9')
        digit = static_cast<unsigned>(c - L'0');
      else if (c >= L'a' && c <= L'f')
        digit = static_cast<unsigned>(c - L'a' + 10);
      else if (c >= L'A' && c <= L'F')
        digit = static_cast<unsigned>(c - L'A' + 10);
      else
        return n;
      if (value > (std::numeric_limits<std::uint64_t>::max() >> 4))
        return n;
      value = (value << 4) | digit;
    }
    n = Number::FromUnsigned(value);
    n.negative = negative;
    n.value = negative ? -n.value : n.value;
    return n;
  }
  std::uint64_t whole = 0;
  bool overflow = false;
  double value = 0.0;
  std::size_t i = 0;
  std::size_t digits = 0;
  for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i, ++digits)
  {
    const auto digit = static_cast<unsigned>(text[i] - L'0');
    if (whole > (std::numeric_limits<std::uint64_t>::max() - digit) / 10)
      overflow = true;
    else
      whole = whole * 10 + digit;
    value = value * 10.0 + digit;
  }
  bool fraction = false;
  if (i < text.size() && text[i] == L'.')
  {
    fraction = true;
    double scale = 0.1;
    for (++i; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i, ++digits, scale /= 10.0)
      value += (text[i] - L'0') * scale;
  }
  if (i != text.size() || digits == 0)
    return n;
  n.valid = true;
  n.negative = negative;
  n.value = negative ? -value : value;
  n.integral = !fraction && !overflow;
  n.magnitude = n.integral ? whole : 0;
  return n;
}

bool CompareNumbers(const Number& a, const Number& b, CompareOp op)
{
  if (!a.valid || !b.valid)
    return op == CompareOp::Ne;
  if (a.integral && b.integral)
    return Apply(CompareIntegral(a, b), op);
  const int order = a.value < b.value ? -1 : (a.value > b.value ? 1 : 0);
  return Apply(order, op);
}

std::uint64_t NumberBits(const Number& n)
{
  if (!n.valid)
    return 0;
  if (n.integral)
    return n.negative ? 0 - n.magnitude : n.magnitude;
  if (!std::isfinite(n.value) || std::fabs(n.value) >= 18446744073709551616.0)
    return 0;
  return n.value < 0 ? 0 - static_cast<std::uint64_t>(-n.value) : static_cast<std::uint64_t>(n.value);
}
} // namespace evtx::query
