// Splits WQL text into tokens for the parser. Keywords come out as identifiers; the parser
// recognises them case-insensitively. Bad characters and unterminated strings throw cim::Error 15.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cim::wql
{
struct Token
{
  enum class Kind
  {
    Identifier, String, Number, Star, Comma, LeftParen, RightParen, Operator, Minus, Plus, End
  };
  Kind kind = Kind::End;
  std::wstring text; // identifier, string contents (unescaped), number text, operator
  std::size_t offset = 0;
};

std::vector<Token> Tokenize(std::wstring_view text);

// Error helper shared by the lexer and the parser.
[[noreturn]] void ThrowInvalid(std::wstring_view what, std::size_t offset);
} // namespace cim::wql
