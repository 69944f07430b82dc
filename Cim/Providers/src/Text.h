// Small text helpers shared by the parsers: line iteration, blank-separated fields, numbers.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace cim::machine::text
{
// Calls fn(line) for every line, without the line feed; a last line without one counts too.
template <typename Fn>
void ForEachLine(std::string_view text, Fn&& fn)
{
  while (!text.empty())
  {
    const auto end = text.find('\n');
    fn(text.substr(0, end));
    if (end == std::string_view::npos)
      break;
    text.remove_prefix(end + 1);
  }
}

inline bool IsBlank(char ch) { return ch == ' ' || ch == '\t' || ch == '\r'; }

inline std::string_view Trim(std::string_view text)
{
  while (!text.empty() && IsBlank(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back()))
    text.remove_suffix(1);
  return text;
}

// Takes the next blank-separated field off the front of text; empty when none is left.
inline std::string_view NextField(std::string_view& text)
{
  std::size_t start = 0;
  while (start < text.size() && IsBlank(text[start]))
    ++start;
  std::size_t end = start;
  while (end < text.size() && !IsBlank(text[end]))
    ++end;
  const auto field = text.substr(start, end - start);
  text.remove_prefix(end);
  return field;
}

template <typename T>
std::optional<T> ToNumber(std::string_view field)
{
  T value{};
  const auto* first = field.data();
  const auto* last = field.data() + field.size();
  const auto [ptr, ec] = std::from_chars(first, last, value);
  if (field.empty() || ec != std::errc() || ptr != last)
    return std::nullopt;
  return value;
}
} // namespace cim::machine::text
