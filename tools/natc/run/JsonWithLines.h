// JSON parsing that remembers where each value was: the line of every value by its JSON
// pointer ("/tasks/0/collections/1/type"), so that a checker can say which line of a file is
// wrong. Syntax errors and duplicate keys are reported with their line and column.
//   auto parsed = natc::run::ParseJsonWithLines(text);   // throws CJsonSyntaxError
//   int line = parsed.LineOf("/tasks/0/host");
#pragma once

#include <nlohmann/json.hpp>

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace natc::run
{
class CJsonSyntaxError : public std::runtime_error
{
public:
  CJsonSyntaxError(int line, int column, const std::string& reason)
    : std::runtime_error(reason), m_line(line), m_column(column)
  {
  }
  int Line() const noexcept { return m_line; }
  int Column() const noexcept { return m_column; }

private:
  int m_line;
  int m_column;
};

// The check sees a throw in nlohmann::json's noexcept null constructor, which our implicit
// default constructor calls; that throw is for value types other than null and cannot happen
// there (nlohmann::json marks its own constructor the same way).
struct SJsonWithLines // NOLINT(bugprone-exception-escape)
{
  nlohmann::json value;
  // JSON pointer of every value (objects and arrays included) -> its 1-based line.
  std::map<std::string, int> lines;

  // The line of the value at `pointer`, else of its nearest enclosing value, else 1.
  int LineOf(const std::string& pointer) const;
};

SJsonWithLines ParseJsonWithLines(std::string_view text);

// "a/b" -> "a~1b", "a~b" -> "a~0b": one reference token of a JSON pointer.
std::string EscapePointerToken(std::string_view token);
} // namespace natc::run
