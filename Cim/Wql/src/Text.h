// Case folding used by every case-insensitive comparison of WQL (names, strings, LIKE).
#pragma once

#include <cwctype>
#include <string>
#include <string_view>

namespace cim::wql
{
inline wchar_t FoldCase(wchar_t ch)
{
  if (ch >= L'A' && ch <= L'Z')
    return static_cast<wchar_t>(ch - L'A' + L'a');
  if (ch < 0x80 || ch > 0x10FFFF)
    return ch;
  return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(ch)));
}

inline int CompareNoCase(std::wstring_view a, std::wstring_view b)
{
  const std::size_t n = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < n; ++i)
  {
    const wchar_t x = FoldCase(a[i]), y = FoldCase(b[i]);
    if (x != y)
      return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}
} // namespace cim::wql
