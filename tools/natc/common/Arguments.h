// Command-line checking shared by the natc commands: the usage error that main() reports with
// exit 2, the text for an unknown option, and a whole decimal number within a range.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace natc
{
// A command line natc does not accept; main() prints the reason and points at --help (exit 2).
class CUsageError : public std::invalid_argument
{
public:
  using std::invalid_argument::invalid_argument;
};

inline std::string UnknownOption(const std::string& option)
{
  return "unknown option '" + option + "'";
}

// Throws CUsageError naming the option, the range and the text given.
inline long long ParseNumber(const std::string& option, const std::string& text, long long low, long long high)
{
  std::size_t used = 0;
  long long value = 0;
  try
  {
    value = std::stoll(text, &used);
  }
  catch (const std::exception&)
  {
    // Not a number at all, or beyond 64 bits: reported below like any value out of range.
    used = 0;
  }
  if (used != text.size() || text.empty() || value < low || value > high)
    throw CUsageError(option + " needs a number from " + std::to_string(low) + " to " + std::to_string(high) +
                      ", not '" + text + "'");
  return value;
}
} // namespace natc
