#include "CommandRegistry.h"

#include <algorithm>
#include <cstdio>

namespace
{
// Function-local so that registration from other files' static objects is order-safe.
std::vector<NatcCommandEntry>& Registry()
{
  static std::vector<NatcCommandEntry> commands;
  return commands;
}
} // namespace

NatcCommand::NatcCommand(const char* name, const char* summary, const char* usage, NatcCommandMain main)
{
  auto& commands = Registry();
  commands.push_back({name, summary, usage, main});
  std::sort(commands.begin(), commands.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
}

const std::vector<NatcCommandEntry>& NatcCommands() { return Registry(); }

// The synopsis of a usage text: its lines up to the first option line ("  --x ...").
std::string natc::Synopsis(const std::string& usage)
{
  std::string synopsis;
  std::size_t start = 0;
  while (start < usage.size())
  {
    std::size_t end = usage.find('\n', start);
    end = end == std::string::npos ? usage.size() : end + 1;
    if (usage.compare(start, 2, "  ") == 0 && end - start > 2 && usage[start + 2] != ' ')
      break;
    synopsis.append(usage, start, end - start);
    start = end;
  }
  return synopsis;
}

int natc::UsageError(const std::string& command, const std::string& reason)
{
  std::fprintf(stderr, "natc %s: %s (see 'natc %s --help')\n", command.c_str(), reason.c_str(), command.c_str());
  const auto& commands = NatcCommands();
  const auto entry = std::find_if(commands.begin(), commands.end(), [&](const auto& c) { return c.name == command; });
  if (entry != commands.end())
    std::fputs(Synopsis(entry->usage).c_str(), stderr);
  return 2;
}
