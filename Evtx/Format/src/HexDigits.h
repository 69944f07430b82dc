// HexDigits: eight bytes as sixteen hex digits in one step, for the value formatters (GUIDs,
// hex numbers), which otherwise take two table look-ups and two stores per byte.
//
// Usage: char text[16]; HexDigits8(bytes, text, HexCase::Upper);
#pragma once

#include <cstdint>

#ifdef __SSE2__
#  include <emmintrin.h>
#endif

namespace evtx::detail
{
enum class HexCase
{
  Lower,
  Upper
};

// Writes bytes[0..8) to to[0..16), the high nibble of each byte first.
inline void HexDigits8(const std::uint8_t* bytes, char* to, HexCase letters)
{
#ifdef __SSE2__
  const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes));
  const __m128i low4 = _mm_set1_epi8(0x0f);
  // Nibbles in text order: high then low of each byte.
  const __m128i nibbles =
    _mm_unpacklo_epi8(_mm_and_si128(_mm_srli_epi16(v, 4), low4), _mm_and_si128(v, low4));
  // '0' + n, and for 10..15 the distance from '9' + 1 to 'A' or 'a'.
  const char gap = letters == HexCase::Upper ? 'A' - '9' - 1 : 'a' - '9' - 1;
  const __m128i above9 = _mm_cmpgt_epi8(nibbles, _mm_set1_epi8(9));
  const __m128i digits = _mm_add_epi8(_mm_add_epi8(nibbles, _mm_set1_epi8('0')),
                                      _mm_and_si128(above9, _mm_set1_epi8(gap)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), digits);
#else
  const char* digits = letters == HexCase::Upper ? "0123456789ABCDEF" : "0123456789abcdef";
  for (int i = 0; i < 8; ++i)
  {
    to[2 * i] = digits[bytes[i] >> 4];
    to[2 * i + 1] = digits[bytes[i] & 0xf];
  }
#endif
}
} // namespace evtx::detail
