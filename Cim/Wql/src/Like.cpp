#include "Cim/Wql/Like.h"

#include "Text.h"

#include "Cim/Model.h"
#include "Cim/Wql/Parser.h"

namespace cim::wql
{
LikePattern LikePattern::Compile(std::wstring_view pattern)
{
  LikePattern result;
  std::size_t pos = 0;
  while (pos < pattern.size())
  {
    const wchar_t ch = pattern[pos++];
    Token token;
    if (ch == L'%')
    {
      // Runs of % are one wildcard.
      if (!result.m_tokens.empty() && result.m_tokens.back().kind == Token::Kind::AnyRun)
        continue;
      token.kind = Token::Kind::AnyRun;
    }
    else if (ch == L'_')
    {
      token.kind = Token::Kind::AnyOne;
    }
    else if (ch == L'[')
    {
      token.kind = Token::Kind::Set;
      const std::size_t open = pos - 1;
      if (pos < pattern.size() && pattern[pos] == L'^')
      {
        token.negated = true;
        ++pos;
      }
      bool first = true;
      bool closed = false;
      while (pos < pattern.size())
      {
        const wchar_t c = pattern[pos];
        // A ']' right after the opening is a member, not the end.
        if (c == L']' && !first)
        {
          ++pos;
          closed = true;
          break;
        }
        first = false;
        if (pos + 2 < pattern.size() && pattern[pos + 1] == L'-' && pattern[pos + 2] != L']')
        {
          token.ranges.push_back({FoldCase(c), FoldCase(pattern[pos + 2])});
          pos += 3;
        }
        else
        {
          token.ranges.push_back({FoldCase(c), FoldCase(c)});
          ++pos;
        }
      }
      if (!closed)
        throw Error{kInvalidQuery, L"Invalid query: unclosed '[' in LIKE pattern at offset " + std::to_wstring(open)};
    }
    else
    {
      token.kind = Token::Kind::Char;
      token.ch = FoldCase(ch);
    }
    result.m_tokens.push_back(std::move(token));
  }
  return result;
}

bool LikePattern::TokenMatches(const Token& token, wchar_t ch) const
{
  switch (token.kind)
  {
  case Token::Kind::AnyOne:
    return true;
  case Token::Kind::Char:
    return FoldCase(ch) == token.ch;
  case Token::Kind::Set: {
    const wchar_t folded = FoldCase(ch);
    bool inside = false;
    for (const Range& range : token.ranges)
      if (folded >= range.first && folded <= range.last)
      {
        inside = true;
        break;
      }
    return inside != token.negated;
  }
  case Token::Kind::AnyRun:
    break;
  }
  return false;
}

bool LikePattern::Matches(std::wstring_view text) const
{
  // Greedy matching that returns to the last % on a mismatch: O(text * pattern) at worst.
  const std::size_t count = m_tokens.size();
  std::size_t t = 0, p = 0;
  std::size_t starToken = count, starText = 0;
  while (t < text.size())
  {
    if (p < count && m_tokens[p].kind == Token::Kind::AnyRun)
    {
      starToken = p++;
      starText = t;
      continue;
    }
    if (p < count && TokenMatches(m_tokens[p], text[t]))
    {
      ++p;
      ++t;
      continue;
    }
    if (starToken == count)
      return false;
    p = starToken + 1;
    t = ++starText;
  }
  while (p < count && m_tokens[p].kind == Token::Kind::AnyRun)
    ++p;
  return p == count;
}
} // namespace cim::wql
