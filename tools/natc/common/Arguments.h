// Command-line number parsing shared by the natc commands: a whole decimal number within a
// range, or std::invalid_argument naming the option, the range and the text given.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace natc
{
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
    throw std::invalid_argument(option + " needs a number from " + std::to_string(low) + " to " +
                                std::to_string(high) + ", not '" + text + "'");
  return value;
}
} // namespace natc
