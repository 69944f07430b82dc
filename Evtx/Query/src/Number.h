// Numbers in event queries: exact 64-bit integers where both sides are integers (record numbers,
// keywords such as 0x8000000000000000 exceed a double's precision), doubles otherwise.
#pragma once

#include <cstdint>
#include <string_view>

namespace evtx::query
{
enum class CompareOp;

struct Number
{
  bool valid = false; // false is XPath's NaN
  bool integral = false;
  bool negative = false;
  std::uint64_t magnitude = 0; // exact value when integral
  double value = 0.0;

  static Number FromInteger(std::int64_t v);
  static Number FromUnsigned(std::uint64_t v);
};

// Decimal ("42", "-1.5") or hexadecimal ("0x10") text, surrounding white space allowed; anything
// else is NaN.
Number ParseNumber(std::wstring_view text);
bool CompareNumbers(const Number& a, const Number& b, CompareOp op);
// The 64 bits band() works on: integers in two's complement, doubles truncated.
std::uint64_t NumberBits(const Number& n);
} // namespace evtx::query
