// natc sub-commands register themselves here; main() dispatches on the first argument.
// A command file defines a function, its usage text and a static NatcCommand object naming them:
//   static NatcCommand evtxCommand{"evtx", "read .evtx files: dump, info", kUsage, &RunEvtx};
// main() answers -h/--help anywhere on a command's line with that usage (stdout, exit 0), and
// turns a natc::CUsageError (or a command's UsageError call) into "natc CMD: reason" plus a
// pointer at --help on stderr, exit 2. So a command only throws for what it does not accept.
#pragma once

#include <string>
#include <vector>

using NatcCommandMain = int (*)(const std::vector<std::string>& arguments);

struct NatcCommand
{
  NatcCommand(const char* name, const char* summary, const char* usage, NatcCommandMain main);
};

struct NatcCommandEntry
{
  std::string name;
  std::string summary;
  std::string usage;
  NatcCommandMain main;
};

const std::vector<NatcCommandEntry>& NatcCommands();

namespace natc
{
// Reports a bad command line of `command` on stderr (the reason, a pointer at --help, the
// synopsis of its usage) and returns its exit code, 2.
int UsageError(const std::string& command, const std::string& reason);
std::string Synopsis(const std::string& usage);
} // namespace natc
