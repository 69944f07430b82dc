// natc: the collector library's command-line tool. "natc COMMAND [ARGS...]".
#include "CommandRegistry.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace
{
int Usage(std::FILE* out)
{
  std::fprintf(out, "usage: natc COMMAND [ARGS...]\n\ncommands:\n");
  for (const auto& command : NatcCommands())
    std::fprintf(out, "  %-8s %s\n", command.name.c_str(), command.summary.c_str());
  return out == stdout ? 0 : 2;
}
} // namespace

int main(int argc, char** argv)
{
  if (argc < 2)
    return Usage(stderr);
  const std::string name = argv[1];
  if (name == "-h" || name == "--help" || name == "help")
    return Usage(stdout);
  for (const auto& command : NatcCommands())
  {
    if (command.name != name)
      continue;
    try
    {
      return command.main(std::vector<std::string>(argv + 2, argv + argc));
    }
    catch (const std::exception& error)
    {
      std::fprintf(stderr, "natc %s: %s\n", name.c_str(), error.what());
      return 1;
    }
  }
  std::fprintf(stderr, "natc: unknown command '%s'\n", name.c_str());
  return Usage(stderr);
}
