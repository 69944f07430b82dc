#include "Lexer.h"

#include "Cim/Model.h"
#include "Cim/Wql/Parser.h"


namespace cim::wql
{
void ThrowInvalid(std::wstring_view what, std::size_t offset)
{
  throw Error{kInvalidQuery, L"Invalid query: " + std::wstring(what) + L" at offset " + std::to_wstring(offset)};
}

namespace
{
bool IsIdentifierStart(wchar_t ch)
{
  return ch == L'_' || (ch >= L'a' && ch <= L'z') || (ch >= L'A' && ch <= L'Z') || (ch >= 0x80 && ch <= 0x10FFFF);
}
bool IsIdentifierPart(wchar_t ch) { return IsIdentifierStart(ch) || (ch >= L'0' && ch <= L'9'); }
bool IsDigit(wchar_t ch) { return ch >= L'0' && ch <= L'9'; }
bool IsHexDigit(wchar_t ch)
{
  return IsDigit(ch) || (ch >= L'a' && ch <= L'f') || (ch >= L'A' && ch <= L'F');
}
bool IsSpace(wchar_t ch) { return ch == L' ' || ch == L'\t' || ch == L'\r' || ch == L'\n' || ch == L'\f' || ch == L'\v'; }

std::size_t ScanNumber(std::wstring_view text, std::size_t pos)
{
  const std::size_t start = pos;
  if (text.size() - pos > 2 && text[pos] == L'0' && (text[pos + 1] == L'x' || text[pos + 1] == L'X') &&
      IsHexDigit(text[pos + 2]))
  {
    pos += 2;
    while (pos < text.size() && IsHexDigit(text[pos]))
      ++pos;
    return pos;
  }
  while (pos < text.size() && IsDigit(text[pos]))
    ++pos;
  if (pos < text.size() && text[pos] == L'.')
  {
    ++pos;
    while (pos < text.size() && IsDigit(text[pos]))
      ++pos;
  }
  if (pos < text.size() && (text[pos] == L'e' || text[pos] == L'E'))
  {
    std::size_t exponent = pos + 1;
    if (exponent < text.size() && (text[exponent] == L'+' || text[exponent] == L'-'))
      ++exponent;
    if (exponent < text.size() && IsDigit(text[exponent]))
    {
      pos = exponent;
      while (pos < text.size() && IsDigit(text[pos]))
        ++pos;
    }
  }
  if (pos == start || (pos - start == 1 && text[start] == L'.'))
    ThrowInvalid(L"malformed number", start);
  // A number glued to letters ("12abc") is not a number.
  if (pos < text.size() && IsIdentifierPart(text[pos]))
    ThrowInvalid(L"malformed number", start);
  return pos;
}
} // namespace

std::vector<Token> Tokenize(std::wstring_view text)
{
  std::vector<Token> tokens;
  std::size_t pos = 0;
  while (true)
  {
    while (pos < text.size() && IsSpace(text[pos]))
      ++pos;
    Token token;
    token.offset = pos;
    if (pos == text.size())
    {
      tokens.push_back(std::move(token));
      return tokens;
    }
    const wchar_t ch = text[pos];
    if (IsIdentifierStart(ch))
    {
      const std::size_t start = pos;
      while (pos < text.size() && IsIdentifierPart(text[pos]))
        ++pos;
      token.kind = Token::Kind::Identifier;
      token.text = text.substr(start, pos - start);
    }
    else if (IsDigit(ch) || (ch == L'.' && pos + 1 < text.size() && IsDigit(text[pos + 1])))
    {
      const std::size_t end = ScanNumber(text, pos);
      token.kind = Token::Kind::Number;
      token.text = text.substr(pos, end - pos);
      pos = end;
    }
    else if (ch == L'\'' || ch == L'"')
    {
      // Quoted string; a backslash takes the next character literally (\\, \', \").
      ++pos;
      token.kind = Token::Kind::String;
      bool closed = false;
      while (pos < text.size())
      {
        const wchar_t c = text[pos++];
        if (c == ch)
        {
          closed = true;
          break;
        }
        if (c == L'\\')
        {
          if (pos == text.size())
            break;
          token.text.push_back(text[pos++]);
        }
        else
        {
          token.text.push_back(c);
        }
      }
      if (!closed)
        ThrowInvalid(L"unterminated string", token.offset);
    }
    else
    {
      ++pos;
      switch (ch)
      {
      case L'*': token.kind = Token::Kind::Star; break;
      case L',': token.kind = Token::Kind::Comma; break;
      case L'(': token.kind = Token::Kind::LeftParen; break;
      case L')': token.kind = Token::Kind::RightParen; break;
      case L'-': token.kind = Token::Kind::Minus; break;
      case L'+': token.kind = Token::Kind::Plus; break;
      case L'=':
        token.kind = Token::Kind::Operator;
        token.text = L"=";
        break;
      case L'<':
      case L'>':
        token.kind = Token::Kind::Operator;
        token.text = std::wstring(1, ch);
        if (pos < text.size() && (text[pos] == L'=' || (ch == L'<' && text[pos] == L'>')))
          token.text.push_back(text[pos++]);
        break;
      case L'!':
        if (pos < text.size() && text[pos] == L'=')
        {
          ++pos;
          token.kind = Token::Kind::Operator;
          token.text = L"!=";
          break;
        }
        ThrowInvalid(L"unexpected '!'", token.offset);
      default:
        ThrowInvalid(L"unexpected character", token.offset);
      }
    }
    tokens.push_back(std::move(token));
  }
}
} // namespace cim::wql
