// natc: the collector library's command-line tool. "natc COMMAND [ARGS...]".
// Exit codes: 0 success or a clean stop, 2 a bad command line or configuration, 1 a failure
// while running.
#include "CommandRegistry.h"
#include "common/Arguments.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace
{
int Usage(std::FILE* out)
{
  std::fprintf(out, "usage: natc COMMAND [ARGS...]\n       natc COMMAND --help\n\ncommands:\n");
  for (const auto& command : NatcCommands())
    std::fprintf(out, "  %-8s %s\n", command.name.c_str(), command.summary.c_str());
  return out == stdout ? 0 : 2;
}

const NatcCommandEntry* Find(const std::string& name)
{
  for (const auto& command : NatcCommands())
    if (command.name == name)
      return &command;
  return nullptr;
}

bool AsksForHelp(const std::vector<std::string>& arguments)
{
  return std::any_of(arguments.begin(), arguments.end(),
                     [](const std::string& argument) { return argument == "-h" || argument == "--help"; });
}
} // namespace

int main(int argc, char** argv)
{
  if (argc < 2)
    return Usage(stderr);
  const std::string name = argv[1];
  const std::vector<std::string> arguments(argv + 2, argv + argc);
  if (name == "-h" || name == "--help")
    return Usage(stdout);
  if (name == "help")
  {
    if (arguments.empty())
      return Usage(stdout);
    const NatcCommandEntry* command = Find(arguments[0]);
    if (command == nullptr)
      return natc::UsageError("help", "unknown command '" + arguments[0] + "'");
    std::fputs(command->usage.c_str(), stdout);
    return 0;
  }
  const NatcCommandEntry* command = Find(name);
  if (command == nullptr)
  {
    std::fprintf(stderr, "natc: unknown command '%s'\n", name.c_str());
    return Usage(stderr);
  }
  // Help is answered here, the same way for every command and sub-command.
  if (AsksForHelp(arguments))
  {
    std::fputs(command->usage.c_str(), stdout);
    return 0;
  }
  try
  {
    return command->main(arguments);
  }
  catch (const natc::CUsageError& error)
  {
    return natc::UsageError(name, error.what());
  }
  catch (const std::exception& error)
  {
    std::fprintf(stderr, "natc %s: %s\n", name.c_str(), error.what());
    return 1;
  }
}
