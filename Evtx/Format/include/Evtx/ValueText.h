// Text forms of typed values, as Windows writes them in rendered event XML, and conversions
// of values to numbers. The table of formats is beside the code in ValueText.cpp.
#pragma once

#include "Evtx/Types.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace evtx
{
enum class TextEscape : std::uint8_t
{
  None,        // plain text
  Xml,         // & < > " ' escaped
  // As Xml, and CR/LF as character references; the C0 controls that XML 1.0 forbids even as
  // references (all but tab, LF, CR) as their Unicode control pictures, U+2400 + code, so that
  // every line parses and keeps the code.
  XmlOneLine,
};

// Appends the value's text (UTF-8). Arrays: items joined by ", " (see ValueText.cpp).
void AppendValueText(std::string& out, const Value& value, TextEscape escape = TextEscape::None);
std::string ValueText(const Value& value);
std::wstring ValueTextWide(const Value& value);
// Steps through the items of an array value: start with pos = 0; each call stores the next item
// (its base type, no array flag) and returns false after the last. String arrays hold
// NUL-terminated items; items of a type without a fixed size come as one Binary item.
bool NextArrayItem(const Value& array, std::uint32_t& pos, Value& item) noexcept;

// Numbers from integer, hex, size_t and bool values, and from decimal or 0x-hex text.
bool ValueToUInt64(const Value& value, std::uint64_t& out) noexcept;
// FILETIME from a FileTime or SystemTime value or from "YYYY-MM-DDTHH:MM:SS[.fffffff]Z" text.
bool ValueToFileTime(const Value& value, std::uint64_t& out) noexcept;
// True when the value is text (String/AnsiString) equal to `text` (UTF-8), case-sensitive.
bool ValueEquals(const Value& value, std::string_view text);

// UTF-16LE bytes (count code units) appended as UTF-8, optionally escaped.
void AppendUtf16(std::string& out, const std::uint8_t* utf16, std::size_t units,
                 TextEscape escape = TextEscape::None);
// UTF-8 to wide (UTF-32 on Linux, UTF-16 on Windows).
std::wstring Utf8ToWide(std::string_view text);
// The same, appended to out in place (no temporary string).
void AppendUtf8AsWide(std::wstring& out, std::string_view text);
// The number of wide units Utf8ToWide makes of the text, and the same units written to a buffer
// of at least that many (no terminating zero); returns the units written.
std::size_t WideLengthOfUtf8(std::string_view text) noexcept;
std::size_t WidenUtf8(std::string_view text, wchar_t* out) noexcept;
// Rewrites, from `from` on, each control XmlOneLine writes as a control picture (for text that
// was not written through the escaping above: template text, names).
void ReplaceForbiddenControls(std::string& text, std::size_t from);
// FILETIME as "YYYY-MM-DDTHH:MM:SS.fffffffZ".
void AppendFileTime(std::string& out, std::uint64_t filetime);
} // namespace evtx
