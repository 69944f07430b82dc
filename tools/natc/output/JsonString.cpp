#include "output/JsonString.h"

#include <cstdint>
#include <type_traits>

#if defined(__SSE2__)
#  include <emmintrin.h>
#endif

namespace natc
{
namespace
{
constexpr char32_t replacement = 0xFFFD;

char* PutUtf8(char* out, char32_t c) noexcept
{
  if (c < 0x800)
  {
    *out++ = static_cast<char>(0xC0 | (c >> 6));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  else if (c < 0x10000)
  {
    *out++ = static_cast<char>(0xE0 | (c >> 12));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  else
  {
    *out++ = static_cast<char>(0xF0 | (c >> 18));
    *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return out;
}

char* PutEscape(char* out, char32_t c) noexcept
{
  static constexpr char hex[] = "0123456789ABCDEF";
  *out++ = '\\';
  switch (c)
  {
  case '"': *out++ = '"'; break;
  case '\\': *out++ = '\\'; break;
  case '\b': *out++ = 'b'; break;
  case '\f': *out++ = 'f'; break;
  case '\n': *out++ = 'n'; break;
  case '\r': *out++ = 'r'; break;
  case '\t': *out++ = 't'; break;
  default:
    *out++ = 'u';
    *out++ = '0';
    *out++ = '0';
    *out++ = hex[(c >> 4) & 0xF];
    *out++ = hex[c & 0xF];
  }
  return out;
}

#if defined(__SSE2__)
// Sixteen four-byte characters as bytes, with a mask of those that need escaping or encoding.
// The saturating packs keep every character outside ASCII outside it (at or above 0x80, or 0 for
// a negative unit), so one test on the bytes finds them with the control characters.
inline __m128i PackBlock(const wchar_t* from, unsigned& bad) noexcept
{
  const auto* blocks = reinterpret_cast<const __m128i*>(from);
  const __m128i bytes =
    _mm_packus_epi16(_mm_packs_epi32(_mm_loadu_si128(blocks), _mm_loadu_si128(blocks + 1)),
                     _mm_packs_epi32(_mm_loadu_si128(blocks + 2), _mm_loadu_si128(blocks + 3)));
  // Signed: bytes from 0x80 up are below 0x20 too.
  const __m128i outside = _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20));
  const __m128i quote =
    _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
  bad = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(outside, quote)));
  return bytes;
}

// Stores sixteen characters as bytes at out and returns how many of them, from the first, need
// no escaping or encoding (only those are kept).
inline std::size_t StorePlainBlock(const wchar_t* from, char* out) noexcept
{
  unsigned bad = 0;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), PackBlock(from, bad));
  return bad == 0 ? 16 : static_cast<std::size_t>(__builtin_ctz(bad));
}

// The rest of a text of at least sixteen characters, fewer than sixteen, from the sixteen that
// end it, of which the first `done` are written already, in at least `done` bytes before out.
// Stores the rest's bytes at out and returns how many of them, from the first, need no escaping
// or encoding.
inline std::size_t StorePlainRest(const wchar_t* lastBlock, std::size_t done, char* out) noexcept
{
  unsigned bad = 0;
  const __m128i bytes = PackBlock(lastBlock, bad);
  bad >>= done;
  // The bytes already written are kept as they are, so the block is stored where it lines up.
  const __m128i lanes = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const __m128i keep = _mm_cmplt_epi8(lanes, _mm_set1_epi8(static_cast<char>(done)));
  auto* const at = reinterpret_cast<__m128i*>(out - done);
  _mm_storeu_si128(at, _mm_or_si128(_mm_and_si128(keep, _mm_loadu_si128(at)), _mm_andnot_si128(keep, bytes)));
  return bad == 0 ? 16 - done : static_cast<std::size_t>(__builtin_ctz(bad));
}
#endif
} // namespace

std::size_t QuoteJsonString(std::wstring_view text, std::vector<char>& buffer)
{
  const std::size_t worst = QuotedJsonSize(text.size());
  if (buffer.size() < worst)
    buffer.resize(worst);
  return QuoteJsonString(text, buffer.data());
}

std::size_t QuoteJsonString(std::wstring_view text, char* const start) noexcept
{
  char* out = start;
  *out++ = '"';
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size; ++i)
  {
#if defined(__SSE2__)
    if constexpr (sizeof(wchar_t) == 4)
    {
      // Sixteen characters at a time while none needs escaping or encoding: most texts are
      // plain ASCII. A text shorter than that goes character by character.
      if (size >= 16)
      {
        while (i + 16 <= size)
        {
          const std::size_t plain = StorePlainBlock(text.data() + i, out);
          out += plain;
          i += plain;
          if (plain < 16)
          {
            // A quote or a backslash (texts of XML have many) is escaped here and the blocks go on.
            if (text[i] != L'"' && text[i] != L'\\')
              break;
            *out++ = '\\';
            *out++ = static_cast<char>(text[i++]);
          }
        }
        // The rest after the last whole block, as the block that ends the text: at least the
        // quote and `done` characters are written before out.
        if (i + 16 > size && i < size)
        {
          const std::size_t plain = StorePlainRest(text.data() + size - 16, 16 - (size - i), out);
          out += plain;
          i += plain;
        }
        if (i >= size)
          break;
      }
    }
#endif
    auto c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
    if (c >= 0x20 && c < 0x80)
    {
      if (c == '"' || c == '\\')
        out = PutEscape(out, c);
      else
        *out++ = static_cast<char>(c);
      continue;
    }
    if (c < 0x20)
    {
      out = PutEscape(out, c);
      continue;
    }
    if constexpr (sizeof(wchar_t) == 2)
    {
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < size && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF)
      {
        c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[i + 1]) - 0xDC00);
        ++i;
      }
    }
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
      c = replacement;
    out = PutUtf8(out, c);
  }
  *out++ = '"';
  return static_cast<std::size_t>(out - start);
}
} // namespace natc
