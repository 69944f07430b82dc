// UTF-8 <-> wide conversions. Bad input never throws: each broken sequence becomes U+FFFD,
// so a damaged event text or file name still reaches the log.
#include "KeldaKernel/Strings.h"

#include <cstdint>

namespace
{
constexpr char32_t replacement = 0xFFFD;

bool IsScalar(char32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

void AppendCodePoint(std::string& out, char32_t c)
{
  if (!IsScalar(c))
    c = replacement;
  if (c < 0x80)
  {
    out += static_cast<char>(c);
  }
  else if (c < 0x800)
  {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
  else if (c < 0x10000)
  {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
  else
  {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void AppendWide(std::wstring& out, char32_t c)
{
  if constexpr (sizeof(wchar_t) == 2)
  {
    if (c >= 0x10000)
    {
      c -= 0x10000;
      out += static_cast<wchar_t>(0xD800 + (c >> 10));
      out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
      return;
    }
  }
  out += static_cast<wchar_t>(c);
}

// Decodes one UTF-8 sequence at text[i]; advances i past it (one byte for a broken sequence).
char32_t DecodeUtf8(std::string_view text, std::size_t& i)
{
  const auto lead = static_cast<unsigned char>(text[i]);
  std::size_t length = 0;
  char32_t c = 0;
  char32_t minimum = 0;
  if (lead < 0x80)
  {
    ++i;
    return lead;
  }
  if ((lead & 0xE0) == 0xC0)
  {
    length = 2, c = lead & 0x1F, minimum = 0x80;
  }
  else if ((lead & 0xF0) == 0xE0)
  {
    length = 3, c = lead & 0x0F, minimum = 0x800;
  }
  else if ((lead & 0xF8) == 0xF0)
  {
    length = 4, c = lead & 0x07, minimum = 0x10000;
  }
  else
  {
    ++i;
    return replacement;
  }
  if (i + length > text.size())
  {
    ++i;
    return replacement;
  }
  for (std::size_t k = 1; k < length; ++k)
  {
    const auto next = static_cast<unsigned char>(text[i + k]);
    if ((next & 0xC0) != 0x80)
    {
      ++i;
      return replacement;
    }
    c = (c << 6) | (next & 0x3F);
  }
  // Overlong forms and encoded surrogates are as broken as a bad byte.
  if (c < minimum || !IsScalar(c))
  {
    ++i;
    return replacement;
  }
  i += length;
  return c;
}
} // namespace

namespace kelda
{
std::string ToUtf8(std::wstring_view text)
{
  std::string out;
  out.reserve(text.size());
  AppendUtf8(out, text);
  return out;
}

void AppendUtf8(std::string& out, std::wstring_view text)
{
  std::size_t i = 0;
  // Most texts are ASCII: copy runs of it in one resize.
  while (i < text.size())
  {
    std::size_t ascii = i;
    while (ascii < text.size() && static_cast<std::make_unsigned_t<wchar_t>>(text[ascii]) < 0x80)
      ++ascii;
    if (ascii > i)
    {
      const std::size_t at = out.size();
      out.resize(at + (ascii - i));
      char* const to = out.data() + at;
      for (std::size_t k = i; k < ascii; ++k)
        to[k - i] = static_cast<char>(text[k]);
      i = ascii;
      if (i == text.size())
        break;
    }
    auto c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
    if constexpr (sizeof(wchar_t) == 2)
    {
      // Join a surrogate pair; a lone surrogate is replaced.
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size())
      {
        const auto low = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i + 1]));
        if (low >= 0xDC00 && low <= 0xDFFF)
        {
          c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
          ++i;
        }
      }
    }
    AppendCodePoint(out, c);
    ++i;
  }
}

std::wstring FromUtf8(std::string_view text)
{
  std::wstring out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size())
    AppendWide(out, DecodeUtf8(text, i));
  return out;
}
} // namespace kelda
