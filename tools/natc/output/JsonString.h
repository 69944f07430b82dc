// A wide text as a quoted JSON string in UTF-8, in one pass: the conversion and the escaping
// RapidJSON's Writer would do on UTF-8 (", \, \b \f \n \r \t, \u00XX for other control
// characters), with every broken character (lone surrogate, beyond U+10FFFF) as U+FFFD.
//   char* at = block.Push(QuotedJsonSize(text.size()));
//   block.Pop(QuotedJsonSize(text.size()) - QuoteJsonString(text, at));
#pragma once

#include <string_view>
#include <vector>

namespace natc
{
// The most bytes QuoteJsonString writes for a text of `length` characters.
constexpr std::size_t QuotedJsonSize(std::size_t length) noexcept
{
  // Six bytes per character at most (\u00XX) and the quotes: blocks of sixteen bytes are stored
  // only over characters the text has.
  return length * 6 + 2;
}
// Writes the quoted text at out, which has room for QuotedJsonSize; returns its size.
std::size_t QuoteJsonString(std::wstring_view text, char* out) noexcept;
// The same at the start of buffer (grown as needed, never shrunk).
std::size_t QuoteJsonString(std::wstring_view text, std::vector<char>& buffer);
} // namespace natc
