// natc sub-commands register themselves here; main() dispatches on the first argument.
// A command file defines a function and a static NatcCommand object naming it:
//   static NatcCommand evtxCommand{"evtx", "read .evtx files: dump, info", &RunEvtx};
#pragma once

#include <string>
#include <vector>

using NatcCommandMain = int (*)(const std::vector<std::string>& arguments);

struct NatcCommand
{
  NatcCommand(const char* name, const char* summary, NatcCommandMain main);
};

struct NatcCommandEntry
{
  std::string name;
  std::string summary;
  NatcCommandMain main;
};

const std::vector<NatcCommandEntry>& NatcCommands();
