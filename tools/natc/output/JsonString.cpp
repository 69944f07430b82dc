#include "output/JsonString.h"

#include <cstdint>
#include <type_traits>

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
