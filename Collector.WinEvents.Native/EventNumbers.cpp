#include "EventNumbers.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace collector::ni::impl
{
namespace
{
bool IsCrtSpace(wchar_t c) noexcept
{
  return c == L' ' || (c >= L'\t' && c <= L'\r');
}

// Reads [white space][sign][digits] and saturates at the limits of Integer.
template <class Integer>
Integer ReadDecimal(std::wstring_view text) noexcept
{
  std::size_t i = 0;
  while (i < text.size() && IsCrtSpace(text[i]))
    ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == L'+' || text[i] == L'-'))
  {
    negative = text[i] == L'-';
    ++i;
  }
  // The magnitude is gathered unsigned; the negative limit is one larger than the positive one.
  using Magnitude = std::make_unsigned_t<Integer>;
  const Magnitude limit = negative ? Magnitude(Magnitude(std::numeric_limits<Integer>::max()) + 1u)
                                   : Magnitude(std::numeric_limits<Integer>::max());
  Magnitude value = 0;
  // The first digits10 digits cannot overflow: read without the check (most numbers end there).
  const std::size_t unchecked = std::min(text.size(), i + std::numeric_limits<Integer>::digits10);
  for (; i < unchecked && text[i] >= L'0' && text[i] <= L'9'; ++i)
    value = static_cast<Magnitude>(value * 10u + static_cast<Magnitude>(text[i] - L'0'));
  bool overflow = false;
  for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i)
  {
    const auto digit = static_cast<Magnitude>(text[i] - L'0');
    if (overflow || value > (limit - digit) / 10u)
    {
      overflow = true;
      continue;
    }
    value = static_cast<Magnitude>(value * 10u + digit);
  }
  if (overflow)
    return negative ? std::numeric_limits<Integer>::min() : std::numeric_limits<Integer>::max();
  if (negative)
    return value == limit ? std::numeric_limits<Integer>::min() : static_cast<Integer>(-static_cast<Integer>(value));
  return static_cast<Integer>(value);
}
} // namespace

int WToI(std::wstring_view text) noexcept
{
  // Both saturate, so the 32-bit reading is the 64-bit one held to the int range.
  return SaturateToInt(WToI64(text));
}

__int64 WToI64(std::wstring_view text) noexcept
{
  return ReadDecimal<std::int64_t>(text);
}

int SaturateToInt(__int64 value) noexcept
{
  return static_cast<int>(std::clamp<__int64>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}
} // namespace collector::ni::impl
