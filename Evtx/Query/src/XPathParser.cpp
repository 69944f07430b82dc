#include "XPathParser.h"

#include "Evtx/Query/Query.h"

#include <cwctype>
#include <string>

namespace evtx::query
{
namespace
{
enum class Tok
{
  End,
  Name,
  Literal,
  Number,
  LParen,
  RParen,
  LBracket,
  RBracket,
  Slash,
  At,
  Comma,
  Star,
  Dot,
  Minus,
  Op
};

struct Token
{
  Tok kind = Tok::End;
  std::wstring text;
  CompareOp op = CompareOp::Eq;
  std::size_t position = 0;
};

// Nesting beyond this is refused rather than risking the stack on hostile input.
constexpr int kMaxDepth = 64;

bool IsNameStart(wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || c == L'_' || c > 0x7F; }
bool IsNameChar(wchar_t c) { return IsNameStart(c) || (c >= L'0' && c <= L'9') || c == L'-' || c == L'.'; }
bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

std::string Narrow(std::wstring_view text)
{
  std::string out;
  for (const wchar_t c : text)
    out += (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '?';
  return out;
}

class Lexer
{
public:
  explicit Lexer(std::wstring_view text) : m_text(text) {}

  Token Next()
  {
    while (m_pos < m_text.size() && (m_text[m_pos] == L' ' || m_text[m_pos] == L'\t' || m_text[m_pos] == L'\r' ||
                                     m_text[m_pos] == L'\n'))
      ++m_pos;
    Token t;
    t.position = m_pos;
    if (m_pos >= m_text.size())
      return t;
    const wchar_t c = m_text[m_pos];
    auto single = [&](Tok kind) {
      t.kind = kind;
      ++m_pos;
      return t;
    };
    switch (c)
    {
    case L'(': return single(Tok::LParen);
    case L')': return single(Tok::RParen);
    case L'[': return single(Tok::LBracket);
    case L']': return single(Tok::RBracket);
    case L'/': return single(Tok::Slash);
    case L'@': return single(Tok::At);
    case L',': return single(Tok::Comma);
    case L'*': return single(Tok::Star);
    case L'-': return single(Tok::Minus);
    case L'=': t.op = CompareOp::Eq; return single(Tok::Op);
    case L'!':
      if (m_pos + 1 < m_text.size() && m_text[m_pos + 1] == L'=')
      {
        t.kind = Tok::Op;
        t.op = CompareOp::Ne;
        m_pos += 2;
        return t;
      }
      break;
    case L'<':
    case L'>':
    {
      const bool equal = m_pos + 1 < m_text.size() && m_text[m_pos + 1] == L'=';
      t.kind = Tok::Op;
      t.op = c == L'<' ? (equal ? CompareOp::Le : CompareOp::Lt) : (equal ? CompareOp::Ge : CompareOp::Gt);
      m_pos += equal ? 2 : 1;
      return t;
    }
    case L'\'':
    case L'"':
    {
      const std::size_t end = m_text.find(c, m_pos + 1);
      if (end == std::wstring_view::npos)
        throw QueryError("unterminated literal at " + std::to_string(m_pos));
      t.kind = Tok::Literal;
      t.text = m_text.substr(m_pos + 1, end - m_pos - 1);
      m_pos = end + 1;
      return t;
    }
    default: break;
    }
    if (IsDigit(c) || (c == L'.' && m_pos + 1 < m_text.size() && IsDigit(m_text[m_pos + 1])))
    {
      std::size_t end = m_pos;
      if (c == L'0' && end + 1 < m_text.size() && (m_text[end + 1] == L'x' || m_text[end + 1] == L'X'))
      {
        end += 2;
        while (end < m_text.size() && std::iswxdigit(m_text[end]))
          ++end;
      }
      else
      {
        while (end < m_text.size() && (IsDigit(m_text[end]) || m_text[end] == L'.'))
          ++end;
      }
      t.kind = Tok::Number;
      t.text = m_text.substr(m_pos, end - m_pos);
      m_pos = end;
      return t;
    }
    if (c == L'.')
      return single(Tok::Dot);
    if (IsNameStart(c))
    {
      std::size_t end = m_pos + 1;
      while (end < m_text.size() && IsNameChar(m_text[end]))
        ++end;
      t.kind = Tok::Name;
      t.text = m_text.substr(m_pos, end - m_pos);
      m_pos = end;
      return t;
    }
    throw QueryError("unexpected character '" + Narrow(m_text.substr(m_pos, 1)) + "' at " + std::to_string(m_pos));
  }

private:
  std::wstring_view m_text;
  std::size_t m_pos = 0;
};

class Parser
{
public:
  explicit Parser(std::wstring_view text) : m_lexer(text) { Advance(); }

  std::unique_ptr<Expr> ParseSelection()
  {
    if (m_token.kind != Tok::Star && !(m_token.kind == Tok::Name && m_token.text == L"Event"))
      Fail("a selection starts with * or Event");
    auto expr = ParsePathExpr();
    if (m_token.kind != Tok::End)
      Fail("unexpected text after the selection");
    return expr;
  }

private:
  [[noreturn]] void Fail(const char* what) const
  {
    throw QueryError(std::string(what) + " (at " + std::to_string(m_token.position) + ")");
  }

  void Advance() { m_token = m_lexer.Next(); }

  void Expect(Tok kind, const char* what)
  {
    if (m_token.kind != kind)
      Fail(what);
    Advance();
  }

  bool IsKeyword(const wchar_t* word) const { return m_token.kind == Tok::Name && m_token.text == word; }

  struct DepthGuard
  {
    explicit DepthGuard(Parser& p) : parser(p)
    {
      if (++parser.m_depth > kMaxDepth)
        parser.Fail("query nested too deeply");
    }
    ~DepthGuard() { --parser.m_depth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
    Parser& parser;
  };

  static std::unique_ptr<Expr> Binary(Expr::Kind kind, std::unique_ptr<Expr> left, std::unique_ptr<Expr> right)
  {
    auto e = std::make_unique<Expr>();
    e->kind = kind;
    e->left = std::move(left);
    e->right = std::move(right);
    return e;
  }

  // operand (keyword operand)*, grouped from the left.
  std::unique_ptr<Expr> ParseChain(const wchar_t* keyword, Expr::Kind kind, std::unique_ptr<Expr> (Parser::*operand)())
  {
    auto left = (this->*operand)();
    while (IsKeyword(keyword))
    {
      Advance();
      left = Binary(kind, std::move(left), (this->*operand)());
    }
    return left;
  }

  std::unique_ptr<Expr> ParseOr()
  {
    DepthGuard guard(*this);
    return ParseChain(L"or", Expr::Kind::Or, &Parser::ParseAnd);
  }

  std::unique_ptr<Expr> ParseAnd() { return ParseChain(L"and", Expr::Kind::And, &Parser::ParseComparison); }

  std::unique_ptr<Expr> ParseComparison()
  {
    auto left = ParsePrimary();
    while (m_token.kind == Tok::Op)
    {
      const CompareOp op = m_token.op;
      Advance();
      left = Binary(Expr::Kind::Compare, std::move(left), ParsePrimary());
      left->op = op;
    }
    return left;
  }

  std::unique_ptr<Expr> ParseNumber(bool negative)
  {
    auto e = std::make_unique<Expr>();
    e->kind = Expr::Kind::Number;
    e->number = evtx::query::ParseNumber(m_token.text);
    if (!e->number.valid)
      Fail("malformed number");
    if (negative)
    {
      e->number.negative = !e->number.negative;
      e->number.value = -e->number.value;
    }
    Advance();
    return e;
  }

  std::unique_ptr<Expr> ParsePrimary()
  {
    DepthGuard guard(*this);
    switch (m_token.kind)
    {
    case Tok::LParen:
    {
      Advance();
      auto inner = ParseOr();
      Expect(Tok::RParen, "missing )");
      return inner;
    }
    case Tok::Literal:
    {
      auto e = std::make_unique<Expr>();
      e->kind = Expr::Kind::Literal;
      e->literal = m_token.text;
      Advance();
      return e;
    }
    case Tok::Number: return ParseNumber(false);
    case Tok::Minus:
      Advance();
      if (m_token.kind != Tok::Number)
        Fail("a number must follow -");
      return ParseNumber(true);
    case Tok::Name:
    {
      // A name followed by ( is a function call; text() is a step and handled by the path.
      Token name = m_token;
      if (name.text != L"text")
      {
        Lexer peek = m_lexer;
        if (peek.Next().kind == Tok::LParen)
          return ParseFunction();
      }
      return ParsePathExpr();
    }
    case Tok::Star:
    case Tok::At:
    case Tok::Dot: return ParsePathExpr();
    default: Fail("expected an operand");
    }
  }

  std::unique_ptr<Expr> ParseFunction()
  {
    const std::wstring name = m_token.text;
    Advance();
    Expect(Tok::LParen, "missing (");
    auto e = std::make_unique<Expr>();
    if (name == L"not")
    {
      e->kind = Expr::Kind::Not;
      e->left = ParseOr();
    }
    else if (name == L"band")
    {
      e->kind = Expr::Kind::Band;
      e->left = ParseOr();
      Expect(Tok::Comma, "band() takes two arguments");
      e->right = ParseOr();
    }
    else if (name == L"timediff")
    {
      e->kind = Expr::Kind::TimeDiff;
      e->left = ParseOr();
      if (m_token.kind == Tok::Comma)
      {
        Advance();
        e->right = ParseOr();
      }
    }
    else if (name == L"position")
    {
      e->kind = Expr::Kind::Position;
    }
    else if (name == L"true" || name == L"false")
    {
      e->kind = Expr::Kind::Boolean;
      e->boolean = name == L"true";
    }
    else
    {
      Fail("unknown function");
    }
    Expect(Tok::RParen, "missing ) after the function's arguments");
    return e;
  }

  std::unique_ptr<Expr> ParsePathExpr()
  {
    auto e = std::make_unique<Expr>();
    e->kind = Expr::Kind::Path;
    for (;;)
    {
      Step step;
      if (m_token.kind == Tok::At)
      {
        Advance();
        if (m_token.kind != Tok::Name)
          Fail("an attribute name must follow @");
        step.kind = Step::Kind::Attribute;
        step.name = m_token.text;
        Advance();
        e->path.steps.push_back(std::move(step));
        break;
      }
      if (m_token.kind == Tok::Dot)
      {
        step.kind = Step::Kind::Self;
        Advance();
      }
      else if (m_token.kind == Tok::Star)
      {
        Advance();
      }
      else if (m_token.kind == Tok::Name && m_token.text == L"text")
      {
        Advance();
        if (m_token.kind == Tok::LParen)
        {
          Advance();
          Expect(Tok::RParen, "text() takes no arguments");
          step.kind = Step::Kind::Text;
        }
        else
        {
          step.name = L"text";
        }
      }
      else if (m_token.kind == Tok::Name)
      {
        step.name = m_token.text;
        Advance();
      }
      else
      {
        Fail("expected a step");
      }
      while (m_token.kind == Tok::LBracket)
      {
        if (step.kind != Step::Kind::Element)
          Fail("a predicate needs an element step");
        Advance();
        step.predicates.push_back(ParseOr());
        Expect(Tok::RBracket, "missing ]");
      }
      const bool last = step.kind == Step::Kind::Text;
      e->path.steps.push_back(std::move(step));
      if (last || m_token.kind != Tok::Slash)
        break;
      Advance();
    }
    return e;
  }

  Lexer m_lexer;
  Token m_token;
  int m_depth = 0;
};
} // namespace

std::unique_ptr<Expr> ParseEventXPath(std::wstring_view text)
{
  Parser parser(text);
  return parser.ParseSelection();
}
} // namespace evtx::query
