#include "JsonWithLines.h"

#include <cstddef>
#include <iterator>
#include <vector>

namespace natc::run
{
namespace
{
// Reads the text one character at a time for the parser and counts what it read, so that the
// handler knows how far the parser has got when it reports a value.
class CCountingIterator
{
public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CCountingIterator() = default;
  CCountingIterator(const char* position, std::size_t* consumed) : m_position(position), m_consumed(consumed) {}

  reference operator*() const { return *m_position; }
  CCountingIterator& operator++()
  {
    ++m_position;
    if (m_consumed != nullptr)
    {
      ++*m_consumed;
    }
    return *this;
  }
  CCountingIterator operator++(int)
  {
    CCountingIterator previous = *this;
    ++*this;
    return previous;
  }
  bool operator==(const CCountingIterator& other) const { return m_position == other.m_position; }
  bool operator!=(const CCountingIterator& other) const { return m_position != other.m_position; }

private:
  const char* m_position = nullptr;
  std::size_t* m_consumed = nullptr;
};

struct SPosition
{
  int line = 1;
  int column = 1;
};

// Line and column of the character at `offset` (0-based; past the end counts as the end).
SPosition PositionAt(std::string_view text, std::size_t offset)
{
  SPosition position;
  const std::size_t end = offset < text.size() ? offset : text.size();
  for (std::size_t i = 0; i < end; ++i)
  {
    if (text[i] == '\n')
    {
      ++position.line;
      position.column = 1;
    }
    else
    {
      ++position.column;
    }
  }
  return position;
}

// The parser may have read one character past a token (the look-ahead after a number or a
// literal): the token ends at the last character before `consumed` that is not white space.
int LineOfTokenEnd(std::string_view text, std::size_t consumed)
{
  std::size_t end = consumed < text.size() ? consumed : text.size();
  while (end > 0 && (text[end - 1] == ' ' || text[end - 1] == '\t' || text[end - 1] == '\n' || text[end - 1] == '\r'))
  {
    --end;
  }
  return PositionAt(text, end == 0 ? 0 : end - 1).line;
}

// The parser's reason without its own "[json.exception...] parse error at line L, column C: "
// prefix, which counts differently from us.
// The parser's text without its "; last read: '...'" tail, which can quote a password.
std::string PlainReason(std::string message)
{
  const std::size_t lastRead = message.find("; last read: ");
  if (lastRead != std::string::npos)
  {
    message.erase(lastRead);
  }
  const std::size_t column = message.find("column ");
  if (column != std::string::npos)
  {
    const std::size_t colon = message.find(": ", column);
    if (colon != std::string::npos)
    {
      return message.substr(colon + 2);
    }
  }
  const std::size_t bracket = message.find("] ");
  return bracket == std::string::npos ? message : message.substr(bracket + 2);
}

class CLineHandler : public nlohmann::json_sax<nlohmann::json>
{
public:
  CLineHandler(std::string_view text, const std::size_t& consumed, SJsonWithLines& result)
    : m_text(text), m_consumed(consumed), m_result(result)
  {
  }

  bool null() override { return add(nullptr, false); }
  bool boolean(bool value) override { return add(value, false); }
  bool number_integer(number_integer_t value) override { return add(value, false); }
  bool number_unsigned(number_unsigned_t value) override { return add(value, false); }
  bool number_float(number_float_t value, const string_t&) override { return add(value, false); }
  bool string(string_t& value) override { return add(value, false); }
  bool binary(binary_t& value) override { return add(nlohmann::json::binary(value), false); }
  bool start_object(std::size_t) override { return add(nlohmann::json::object(), true); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return add(nlohmann::json::array(), true); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override
  {
    nlohmann::json& parent = *m_stack.back().value;
    if (parent.contains(name))
    {
      const SPosition position = PositionAt(m_text, m_consumed == 0 ? 0 : m_consumed - 1);
      throw CJsonSyntaxError(position.line, position.column, "duplicate key \"" + name + "\"");
    }
    m_key = name;
    return true;
  }

  bool parse_error(std::size_t position, const std::string&, const nlohmann::json::exception& error) override
  {
    // The parser counts the offending character as read.
    const SPosition where = PositionAt(m_text, position == 0 ? 0 : position - 1);
    throw CJsonSyntaxError(where.line, where.column, PlainReason(error.what()));
  }

private:
  struct SOpen
  {
    nlohmann::json* value;
    std::string pointer;
  };

  template <class Value>
  bool add(Value&& value, bool container)
  {
    nlohmann::json* target = nullptr;
    std::string pointer;
    if (m_stack.empty())
    {
      m_result.value = std::forward<Value>(value);
      target = &m_result.value;
    }
    else
    {
      nlohmann::json& parent = *m_stack.back().value;
      if (parent.is_array())
      {
        pointer = m_stack.back().pointer + "/" + std::to_string(parent.size());
        parent.push_back(std::forward<Value>(value));
        target = &parent.back();
      }
      else
      {
        pointer = m_stack.back().pointer + "/" + EscapePointerToken(m_key);
        target = &(parent[m_key] = std::forward<Value>(value));
      }
    }
    m_result.lines[pointer] = LineOfTokenEnd(m_text, m_consumed);
    if (container)
    {
      m_stack.push_back({target, pointer});
    }
    return true;
  }

  bool close()
  {
    m_stack.pop_back();
    return true;
  }

  std::string_view m_text;
  const std::size_t& m_consumed;
  SJsonWithLines& m_result;
  // Containers being filled; a child container is never moved while it is open, because its
  // parent gets no other member until it is closed.
  std::vector<SOpen> m_stack;
  std::string m_key;
};
} // namespace

int SJsonWithLines::LineOf(const std::string& pointer) const
{
  std::string current = pointer;
  while (true)
  {
    const auto position = lines.find(current);
    if (position != lines.end())
    {
      return position->second;
    }
    if (current.empty())
    {
      return 1;
    }
    current.erase(current.rfind('/'));
  }
}

SJsonWithLines ParseJsonWithLines(std::string_view text)
{
  SJsonWithLines result;
  std::size_t consumed = 0;
  CLineHandler handler(text, consumed, result);
  const CCountingIterator first(text.data(), &consumed);
  const CCountingIterator last(text.data() + text.size(), nullptr);
  nlohmann::json::sax_parse(first, last, &handler);
  return result;
}

std::string EscapePointerToken(std::string_view token)
{
  std::string escaped;
  for (const char c : token)
  {
    if (c == '~')
    {
      escaped += "~0";
    }
    else if (c == '/')
    {
      escaped += "~1";
    }
    else
    {
      escaped += c;
    }
  }
  return escaped;
}
} // namespace natc::run
