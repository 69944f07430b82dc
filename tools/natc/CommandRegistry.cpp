#include "CommandRegistry.h"

#include <algorithm>

namespace
{
// Function-local so that registration from other files' static objects is order-safe.
std::vector<NatcCommandEntry>& Registry()
{
  static std::vector<NatcCommandEntry> commands;
  return commands;
}
} // namespace

NatcCommand::NatcCommand(const char* name, const char* summary, NatcCommandMain main)
{
  auto& commands = Registry();
  commands.push_back({name, summary, main});
  std::sort(commands.begin(), commands.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
}

const std::vector<NatcCommandEntry>& NatcCommands() { return Registry(); }
