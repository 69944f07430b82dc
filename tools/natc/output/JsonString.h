// A wide text as a quoted JSON string in UTF-8, in one pass: the conversion and the escaping
// RapidJSON's Writer would do on UTF-8 (", \, \b \f \n \r \t, \u00XX for other control
// characters), with every broken character (lone surrogate, beyond U+10FFFF) as U+FFFD.
//   std::vector<char> buffer;
//   writer.RawValue(buffer.data(), QuoteJsonString(L"a\"b", buffer), rapidjson::kStringType);
#pragma once

#include <string_view>
#include <vector>

namespace natc
{
// Writes the quoted text at the start of buffer (grown as needed, never shrunk); returns its size.
std::size_t QuoteJsonString(std::wstring_view text, std::vector<char>& buffer);
} // namespace natc
