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
      // plain ASCII.
      while (i + 16 <= size)
      {
        const auto* from = reinterpret_cast<const __m128i*>(text.data() + i);
        __m128i parts[4];
        std::uint64_t bad = 0;
        for (int k = 0; k < 4; ++k)
        {
          const __m128i v = _mm_loadu_si128(from + k);
          parts[k] = v;
          const __m128i outside = _mm_or_si128(_mm_cmplt_epi32(v, _mm_set1_epi32(0x20)),
                                               _mm_cmpgt_epi32(v, _mm_set1_epi32(0x7F)));
          const __m128i quote = _mm_or_si128(_mm_cmpeq_epi32(v, _mm_set1_epi32('"')),
                                             _mm_cmpeq_epi32(v, _mm_set1_epi32('\\')));
          bad |= static_cast<std::uint64_t>(_mm_movemask_epi8(_mm_or_si128(outside, quote))) << (16 * k);
        }
        // All sixteen are stored (the buffer has room); only those before the first that needs
        // work are kept.
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(_mm_packs_epi32(parts[0], parts[1]),
                                                                             _mm_packs_epi32(parts[2], parts[3])));
        const std::size_t plain = bad == 0 ? 16 : static_cast<std::size_t>(__builtin_ctzll(bad)) / 4;
        out += plain;
        i += plain;
        if (plain < 16)
          break;
      }
      if (i >= size)
        break;
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
