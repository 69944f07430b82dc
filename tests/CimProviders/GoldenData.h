// Captured /proc and /etc texts for the golden parser and class tests.
#pragma once

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

inline std::string GoldenText(const std::string& name)
{
  const std::string path = std::string(NATC_SOURCE_DIR) + "/tests/CimProviders/data/" + name;
  std::ifstream file(path, std::ios::binary);
  if (!file)
    throw std::runtime_error("Missing golden file " + path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}
