// The command line of `natc run`, parsed without side effects:
//   natc run [CONFIG] [--check] [--duration S] [--logs DIR] [--threads N] [--state FILE]
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace natc::run
{
struct SRunArguments
{
  // Empty: the embedded default configuration.
  std::string configFile;
  // Stop after this many seconds; empty: run until SIGINT or SIGTERM.
  std::optional<double> duration;
  // Event log directory of the default configuration; empty: the generated demo logs.
  std::string logDirectory;
  // Worker threads of the pool; 0: one per core, at least two.
  unsigned threads = 0;
  // Check the configuration as a start would, start nothing, exit.
  bool check = false;
  // Bookmarks kept across runs; empty: none kept.
  std::string stateFile;
};

// Throws std::invalid_argument with a message for the user.
SRunArguments ParseRunArguments(const std::vector<std::string>& arguments);

extern const char* const runUsage;
} // namespace natc::run
