// The WQL LIKE pattern: % matches any run of characters, _ any one character, [abc] / [a-z] one
// character of a set or range, [^...] one character outside it. Matching ignores letter case.
//   auto pattern = LikePattern::Compile(L"Win%[0-9]"); pattern.Matches(L"win7")
// A malformed pattern (an unclosed '[') throws cim::Error with MI_RESULT_INVALID_QUERY (15).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cim::wql
{
class LikePattern
{
public:
  static LikePattern Compile(std::wstring_view pattern);
  bool Matches(std::wstring_view text) const;

private:
  struct Range
  {
    wchar_t first;
    wchar_t last;
  };
  struct Token
  {
    enum class Kind
    {
      AnyRun, AnyOne, Set, Char
    } kind;
    wchar_t ch = 0;            // Char, lower case
    bool negated = false;      // Set
    std::vector<Range> ranges; // Set, lower case
  };
  bool TokenMatches(const Token& token, wchar_t ch) const;

  std::vector<Token> m_tokens;
};
} // namespace cim::wql
