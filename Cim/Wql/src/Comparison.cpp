#include "Comparison.h"

#include "Text.h"

#include <charconv>
#include <cmath>

namespace cim::wql
{
namespace
{
enum class Domain
{
  Number, String, DateTime
};

Domain DomainOf(Type type)
{
  switch (type)
  {
  case Type::String:
    return Domain::String;
  case Type::DateTime:
    return Domain::DateTime;
  default:
    return Domain::Number;
  }
}

Number Integral(__int128 value)
{
  Number number;
  number.integer = value;
  return number;
}

Number Real(long double value)
{
  Number number;
  number.integral = false;
  number.real = value;
  return number;
}

std::optional<Number> NumberFromText(std::wstring_view text, Type propertyType)
{
  if (propertyType == Type::Char16 && text.size() == 1)
    return Integral(static_cast<std::uint16_t>(text[0]));
  if (propertyType == Type::Boolean)
  {
    if (CompareNoCase(text, L"true") == 0)
      return Integral(1);
    if (CompareNoCase(text, L"false") == 0)
      return Integral(0);
  }
  std::string ascii;
  for (const wchar_t ch : text)
  {
    if (ch <= 0 || ch >= 0x80)
      return std::nullopt;
    ascii.push_back(static_cast<char>(ch));
  }
  const char* first = ascii.data();
  const char* last = ascii.data() + ascii.size();
  const bool negative = !ascii.empty() && ascii[0] == '-';
  std::uint64_t magnitude = 0;
  auto [end, ec] = std::from_chars(first + (negative ? 1 : 0), last, magnitude);
  if (ec == std::errc() && end == last && !ascii.empty())
    return Integral(negative ? -static_cast<__int128>(magnitude) : static_cast<__int128>(magnitude));
  double real = 0;
  auto [realEnd, realEc] = std::from_chars(first, last, real);
  if (realEc == std::errc() && realEnd == last && !ascii.empty())
    return Real(real);
  return std::nullopt;
}
} // namespace

std::optional<Comparand> FromLiteral(const Literal& literal, Type propertyType)
{
  switch (DomainOf(propertyType))
  {
  case Domain::String:
    if (const auto* text = std::get_if<std::wstring>(&literal))
      return Comparand(*text);
    return std::nullopt;
  case Domain::DateTime:
    if (const auto* text = std::get_if<std::wstring>(&literal))
      if (auto parsed = ParseDmtf(*text))
        return Comparand(KeyOf(*parsed));
    return std::nullopt;
  case Domain::Number:
    break;
  }
  if (const auto* flag = std::get_if<bool>(&literal))
    return Comparand(Integral(*flag ? 1 : 0));
  if (const auto* integer = std::get_if<std::int64_t>(&literal))
    return Comparand(Integral(*integer));
  if (const auto* unsignedInteger = std::get_if<std::uint64_t>(&literal))
    return Comparand(Integral(*unsignedInteger));
  if (const auto* real = std::get_if<double>(&literal))
    return Comparand(Real(*real));
  if (const auto* text = std::get_if<std::wstring>(&literal))
    if (auto number = NumberFromText(*text, propertyType))
      return Comparand(*number);
  return std::nullopt;
}

Comparand FromValue(const Value& value)
{
  return std::visit(
      [](const auto& v) -> Comparand {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::wstring>)
          return v;
        else if constexpr (std::is_same_v<T, DateTime>)
          return KeyOf(v);
        else if constexpr (std::is_same_v<T, bool>)
          return Integral(v ? 1 : 0);
        else if constexpr (std::is_floating_point_v<T>)
          return Real(v);
        else
          return Integral(static_cast<__int128>(v));
      },
      value);
}

std::optional<int> Compare(const Comparand& left, const Comparand& right)
{
  if (left.index() != right.index())
    return std::nullopt;
  if (const auto* a = std::get_if<Number>(&left))
  {
    const auto& b = std::get<Number>(right);
    if (a->integral && b.integral)
      return a->integer < b.integer ? -1 : (a->integer > b.integer ? 1 : 0);
    const long double x = a->integral ? static_cast<long double>(a->integer) : a->real;
    const long double y = b.integral ? static_cast<long double>(b.integer) : b.real;
    if (std::isnan(x) || std::isnan(y))
      return std::nullopt;
    return x < y ? -1 : (x > y ? 1 : 0);
  }
  if (const auto* a = std::get_if<std::wstring>(&left))
    return CompareNoCase(*a, std::get<std::wstring>(right));
  const auto& a = std::get<DateTimeKey>(left);
  const auto& b = std::get<DateTimeKey>(right);
  if (a.isTimestamp != b.isTimestamp)
    return std::nullopt;
  return a.microseconds < b.microseconds ? -1 : (a.microseconds > b.microseconds ? 1 : 0);
}

bool Holds(CompareOp op, int order)
{
  switch (op)
  {
  case CompareOp::Equal: return order == 0;
  case CompareOp::NotEqual: return order != 0;
  case CompareOp::Less: return order < 0;
  case CompareOp::LessEqual: return order <= 0;
  case CompareOp::Greater: return order > 0;
  case CompareOp::GreaterEqual: return order >= 0;
  }
  return false;
}
} // namespace cim::wql
