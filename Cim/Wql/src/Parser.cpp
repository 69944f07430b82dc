// Recursive descent over the token list. Precedence, lowest first: OR, AND, NOT, predicates.
#include "Cim/Wql/Parser.h"

#include "Lexer.h"

#include "Cim/Model.h"
#include "Cim/Names.h"

#include <charconv>
#include <limits>
#include <string>

namespace cim::wql
{
namespace
{
// Deeper nesting than this is refused rather than risking the stack.
constexpr int kMaxDepth = 200;

bool IsReserved(std::wstring_view word)
{
  for (const wchar_t* keyword : {L"SELECT", L"FROM", L"WHERE", L"AND", L"OR", L"NOT", L"LIKE", L"IS", L"NULL",
                                 L"TRUE", L"FALSE"})
    if (EqualsNoCase(word, keyword))
      return true;
  return false;
}

Literal ParseNumber(const std::wstring& text, bool negative, std::size_t offset)
{
  std::string ascii(text.begin(), text.end());
  const bool hex = ascii.size() > 2 && ascii[0] == '0' && (ascii[1] == 'x' || ascii[1] == 'X');
  const bool real = !hex && ascii.find_first_of(".eE") != std::string::npos;
  if (!real)
  {
    std::uint64_t magnitude = 0;
    const char* first = ascii.data() + (hex ? 2 : 0);
    const auto [end, ec] = std::from_chars(first, ascii.data() + ascii.size(), magnitude, hex ? 16 : 10);
    if (ec == std::errc() && end == ascii.data() + ascii.size())
    {
      constexpr auto maxSigned = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
      if (!negative && magnitude <= maxSigned)
        return static_cast<std::int64_t>(magnitude);
      if (!negative)
        return magnitude;
      if (magnitude <= maxSigned + 1)
        return static_cast<std::int64_t>(0 - magnitude);
    }
    if (hex)
      ThrowInvalid(L"number out of range", offset);
    // Too large for 64 bits: fall through and read it as a real.
  }
  double value = 0;
  const auto [end, ec] = std::from_chars(ascii.data(), ascii.data() + ascii.size(), value);
  if (ec != std::errc() || end != ascii.data() + ascii.size())
    ThrowInvalid(L"number out of range", offset);
  return negative ? -value : value;
}

class Parser
{
public:
  explicit Parser(std::wstring_view text) : m_tokens(Tokenize(text)) {}

  Query ParseQuery()
  {
    Query query;
    ExpectKeyword(L"SELECT");
    if (Peek().kind == Token::Kind::Star)
    {
      Next();
      query.selectAll = true;
    }
    else
    {
      // WMI refuses an empty list ("SELECT  FROM C") as WBEM_E_INVALID_QUERY: a name is required.
      query.properties.push_back(ExpectName(L"property name"));
      while (Peek().kind == Token::Kind::Comma)
      {
        Next();
        query.properties.push_back(ExpectName(L"property name"));
      }
    }
    ExpectKeyword(L"FROM");
    query.className = ExpectName(L"class name");
    if (PeekKeyword(L"WHERE"))
    {
      Next();
      query.where = std::make_unique<Expr>(ParseOr(0));
    }
    if (Peek().kind != Token::Kind::End)
      ThrowInvalid(L"unexpected text after the query", Peek().offset);
    return query;
  }

private:
  const Token& Peek() const { return m_tokens[m_pos]; }
  const Token& Next()
  {
    const Token& token = m_tokens[m_pos];
    if (token.kind != Token::Kind::End)
      ++m_pos;
    return token;
  }
  bool PeekKeyword(std::wstring_view keyword) const
  {
    return Peek().kind == Token::Kind::Identifier && EqualsNoCase(Peek().text, keyword);
  }
  void ExpectKeyword(std::wstring_view keyword)
  {
    if (!PeekKeyword(keyword))
      ThrowInvalid(L"expected " + std::wstring(keyword), Peek().offset);
    Next();
  }
  std::wstring ExpectName(std::wstring_view what)
  {
    if (Peek().kind != Token::Kind::Identifier || IsReserved(Peek().text))
      ThrowInvalid(L"expected " + std::wstring(what), Peek().offset);
    return Next().text;
  }

  Expr ParseOr(int depth) { return ParseChain(depth, L"OR", Expr::Kind::Or, &Parser::ParseAnd); }
  Expr ParseAnd(int depth) { return ParseChain(depth, L"AND", Expr::Kind::And, &Parser::ParseNot); }

  // operand { keyword operand }: one node of the kind holding every operand, or the lone operand.
  Expr ParseChain(int depth, std::wstring_view keyword, Expr::Kind kind, Expr (Parser::*operand)(int))
  {
    Expr first = (this->*operand)(depth);
    if (!PeekKeyword(keyword))
      return first;
    Expr node;
    node.kind = kind;
    node.children.push_back(std::move(first));
    while (PeekKeyword(keyword))
    {
      Next();
      node.children.push_back((this->*operand)(depth));
    }
    return node;
  }

  Expr ParseNot(int depth)
  {
    if (depth > kMaxDepth)
      ThrowInvalid(L"condition nested too deeply", Peek().offset);
    if (PeekKeyword(L"NOT"))
    {
      Next();
      Expr node;
      node.kind = Expr::Kind::Not;
      node.children.push_back(ParseNot(depth + 1));
      return node;
    }
    if (Peek().kind == Token::Kind::LeftParen)
    {
      Next();
      Expr inner = ParseOr(depth + 1);
      if (Peek().kind != Token::Kind::RightParen)
        ThrowInvalid(L"expected ')'", Peek().offset);
      Next();
      return inner;
    }
    return ParsePredicate();
  }

  Operand ParseOperand()
  {
    Operand operand;
    const Token& token = Peek();
    switch (token.kind)
    {
    case Token::Kind::String:
      operand.literal = Next().text;
      return operand;
    case Token::Kind::Number:
      operand.literal = ParseNumber(Next().text, false, token.offset);
      return operand;
    case Token::Kind::Minus:
    case Token::Kind::Plus: {
      const bool negative = token.kind == Token::Kind::Minus;
      Next();
      if (Peek().kind != Token::Kind::Number)
        ThrowInvalid(L"expected a number", Peek().offset);
      const Token& number = Next();
      operand.literal = ParseNumber(number.text, negative, number.offset);
      return operand;
    }
    case Token::Kind::Identifier:
      if (EqualsNoCase(token.text, L"TRUE") || EqualsNoCase(token.text, L"FALSE"))
      {
        operand.literal = EqualsNoCase(Next().text, L"TRUE");
        return operand;
      }
      if (EqualsNoCase(token.text, L"NULL"))
      {
        Next();
        operand.literal = std::monostate{};
        return operand;
      }
      operand.isProperty = true;
      operand.property = ExpectName(L"property name");
      return operand;
    default:
      ThrowInvalid(L"expected a property or a constant", token.offset);
    }
  }

  Expr ParsePredicate()
  {
    Expr node;
    const std::size_t start = Peek().offset;
    node.left = ParseOperand();
    if (PeekKeyword(L"IS"))
    {
      Next();
      node.kind = Expr::Kind::IsNull;
      if (PeekKeyword(L"NOT"))
      {
        Next();
        node.negated = true;
      }
      ExpectKeyword(L"NULL");
      if (!node.left.isProperty)
        ThrowInvalid(L"IS NULL needs a property", start);
      return node;
    }
    if (PeekKeyword(L"NOT") || PeekKeyword(L"LIKE"))
    {
      if (PeekKeyword(L"NOT"))
      {
        Next();
        node.negated = true;
        if (!PeekKeyword(L"LIKE"))
          ThrowInvalid(L"expected LIKE", Peek().offset);
      }
      Next();
      node.kind = Expr::Kind::Like;
      if (!node.left.isProperty)
        ThrowInvalid(L"LIKE needs a property on its left", start);
      if (Peek().kind != Token::Kind::String)
        ThrowInvalid(L"LIKE needs a string pattern", Peek().offset);
      node.right.literal = Next().text;
      return node;
    }
    if (Peek().kind != Token::Kind::Operator)
      ThrowInvalid(L"expected a comparison", Peek().offset);
    const std::wstring& op = Next().text;
    node.kind = Expr::Kind::Compare;
    if (op == L"=")
      node.op = CompareOp::Equal;
    else if (op == L"<>" || op == L"!=")
      node.op = CompareOp::NotEqual;
    else if (op == L"<")
      node.op = CompareOp::Less;
    else if (op == L"<=")
      node.op = CompareOp::LessEqual;
    else if (op == L">")
      node.op = CompareOp::Greater;
    else
      node.op = CompareOp::GreaterEqual;
    node.right = ParseOperand();
    if (node.left.isProperty == node.right.isProperty)
      ThrowInvalid(L"a comparison needs one property and one constant", start);
    return node;
  }

  std::vector<Token> m_tokens;
  std::size_t m_pos = 0;
};
} // namespace

Query Parse(std::wstring_view text)
{
  return Parser(text).ParseQuery();
}
} // namespace cim::wql
