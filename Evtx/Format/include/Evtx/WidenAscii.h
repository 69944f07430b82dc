// WidenAscii16: sixteen ASCII bytes widened to wchar_t in one step (UTF-16 units on Windows,
// UTF-32 on Linux), for conversions of UTF-8 text to wide, whose text is mostly ASCII.
//
// Usage: while (end - p >= 16 && evtx::WidenAscii16(p, to)) { p += 16; to += 16; }
//        while (end - p >= 16 && evtx::IsAscii16(p)) p += 16;   // counting only
#pragma once

#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#  include <emmintrin.h>
#endif

namespace evtx
{
// Whether the sixteen bytes at `from` are all ASCII.
inline bool IsAscii16(const std::uint8_t* from) noexcept
{
  std::uint64_t a = 0, b = 0;
  std::memcpy(&a, from, 8);
  std::memcpy(&b, from + 8, 8);
  return ((a | b) & 0x8080808080808080ull) == 0;
}

// Writes the sixteen bytes at `from` as sixteen wide units at `to` and returns true, or writes
// nothing and returns false when one of them is not ASCII.
inline bool WidenAscii16(const std::uint8_t* from, wchar_t* to) noexcept
{
  static_assert(sizeof(wchar_t) == 2 || sizeof(wchar_t) == 4);
#ifdef __SSE2__
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  if (_mm_movemask_epi8(block) != 0)
    return false;
  const __m128i zero = _mm_setzero_si128();
  const __m128i low = _mm_unpacklo_epi8(block, zero);
  const __m128i high = _mm_unpackhi_epi8(block, zero);
  auto* out = reinterpret_cast<__m128i*>(to);
  if constexpr (sizeof(wchar_t) == 2)
  {
    _mm_storeu_si128(out, low);
    _mm_storeu_si128(out + 1, high);
  }
  else
  {
    _mm_storeu_si128(out, _mm_unpacklo_epi16(low, zero));
    _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(low, zero));
    _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(high, zero));
    _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(high, zero));
  }
  return true;
#else
  if (!IsAscii16(from))
    return false;
  for (int k = 0; k < 16; ++k)
    to[k] = static_cast<wchar_t>(from[k]);
  return true;
#endif
}
} // namespace evtx
