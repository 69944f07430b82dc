#include "Cim/Names.h"

#include <cwctype>

namespace cim
{
std::wstring ToLower(std::wstring_view text)
{
  std::wstring lower(text);
  for (auto& ch : lower)
    ch = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(ch)));
  return lower;
}

bool EqualsNoCase(std::wstring_view left, std::wstring_view right)
{
  if (left.size() != right.size())
    return false;
  for (std::size_t i = 0; i < left.size(); ++i)
  {
    if (std::towlower(static_cast<wint_t>(left[i])) != std::towlower(static_cast<wint_t>(right[i])))
      return false;
  }
  return true;
}

std::wstring NormalizeNamespace(std::wstring_view nameSpace)
{
  std::wstring key = ToLower(nameSpace);
  for (auto& ch : key)
  {
    if (ch == L'\\')
      ch = L'/';
  }
  const auto first = key.find_first_not_of(L'/');
  if (first == std::wstring::npos)
    return {};
  const auto last = key.find_last_not_of(L'/');
  return key.substr(first, last - first + 1);
}

std::wstring Widen(std::string_view utf8)
{
  constexpr wchar_t replacement = 0xFFFD;
  std::wstring out;
  out.reserve(utf8.size());
  std::size_t i = 0;
  while (i < utf8.size())
  {
    const auto lead = static_cast<unsigned char>(utf8[i]);
    if (lead < 0x80)
    {
      out.push_back(static_cast<wchar_t>(lead));
      ++i;
      continue;
    }
    std::size_t extra = 0;
    char32_t code = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) { extra = 1; code = lead & 0x1F; minimum = 0x80; }
    else if ((lead & 0xF0) == 0xE0) { extra = 2; code = lead & 0x0F; minimum = 0x800; }
    else if ((lead & 0xF8) == 0xF0) { extra = 3; code = lead & 0x07; minimum = 0x10000; }
    else
    {
      out.push_back(replacement);
      ++i;
      continue;
    }
    std::size_t taken = 1;
    bool valid = i + extra < utf8.size();
    for (; valid && taken <= extra; ++taken)
    {
      const auto next = static_cast<unsigned char>(utf8[i + taken]);
      if ((next & 0xC0) != 0x80)
        valid = false;
      else
        code = (code << 6) | (next & 0x3F);
    }
    if (!valid || code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
    {
      // Skip only the lead byte so that a following valid sequence is still decoded.
      out.push_back(replacement);
      ++i;
      continue;
    }
    out.push_back(static_cast<wchar_t>(code));
    i += extra + 1;
  }
  return out;
}
} // namespace cim
