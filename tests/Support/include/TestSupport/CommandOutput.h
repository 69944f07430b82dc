// Runs a command line through the shell and collects its standard output line by line, with
// its exit status: for tests that drive the natc tool as a user would.
//   const CommandOutput out = RunCommand(std::string(NATC_BINARY) + " events --once ...");
#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <vector>

struct CommandOutput
{
  // The exit code, or -1 when the command did not exit normally (killed, not started).
  int status = -1;
  std::vector<std::string> lines;
};

// With withStderr the standard error is merged into the lines; otherwise it is discarded.
inline CommandOutput RunCommand(const std::string& commandLine, bool withStderr = false)
{
  CommandOutput result;
  const std::string command = commandLine + (withStderr ? " 2>&1" : " 2>/dev/null");
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr)
    return result;
  std::array<char, 4096> buffer{};
  std::string current;
  while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), pipe) != nullptr)
  {
    current += buffer.data();
    if (!current.empty() && current.back() == '\n')
    {
      current.pop_back();
      result.lines.push_back(std::move(current));
      current.clear();
    }
  }
  if (!current.empty())
    result.lines.push_back(std::move(current));
  const int status = ::pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}
