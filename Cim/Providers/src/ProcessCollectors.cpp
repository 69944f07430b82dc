// Collectors of the process classes: one pass over /proc, reading each process's files once.
// A process that ends during the pass is skipped, as if it had ended before.
#include "Cim/Machine/Classes.h"
#include "Cim/Provider.h"
#include "Collectors.h"
#include "ProcFiles.h"

#include <unistd.h>

#include <cstdio>

namespace cim::machine
{
namespace
{
std::uint64_t PageSize()
{
  const long size = sysconf(_SC_PAGESIZE);
  return size > 0 ? static_cast<std::uint64_t>(size) : 4096;
}

// "/proc/<pid>/<file>" into a fixed buffer, so the pass allocates no path strings.
struct ProcPath
{
  char text[64];
  const char* Of(std::uint32_t pid, const char* file)
  {
    std::snprintf(text, sizeof(text), "/proc/%u/%s", pid, file);
    return text;
  }
};
} // namespace

void CollectProcesses(std::vector<Instance>& out)
{
  ProcessContext context;
  std::string text;
  if (!ReadText("/proc/stat", text))
    FailToRead("/proc/stat");
  context.bootTime = ParseProcStat(text).bootTime.value_or(0);
  context.ticksPerSecond = TicksPerSecond();
  context.pageSize = PageSize();
  context.utcOffsetMinutes = LocalOffsetMinutes(static_cast<std::int64_t>(std::time(nullptr)));
  context.hostName = Hosts::MachineName();

  ProcessFacts facts;
  ProcPath path;
  ForEachProcessId([&](std::uint32_t pid) {
    if (!ReadText(path.Of(pid, "stat"), text))
      return;
    auto stat = ParseProcessStat(text);
    if (!stat)
      return;
    facts.stat = std::move(*stat);
    facts.status = ReadText(path.Of(pid, "status"), text) ? ParseProcessStatus(text) : ProcessStatus{};
    facts.cmdline = ReadText(path.Of(pid, "cmdline"), text) ? ParseCmdline(text) : std::string();
    facts.executablePath = ReadLink(path.Of(pid, "exe"));
    AppendProcess(facts, context, out);
  });
}

void CollectProcessPerf(std::uint64_t perfFrequency, std::vector<Instance>& out)
{
  const auto stamp = SamplePerfStamp(perfFrequency);
  ProcessPerfBuilder builder(TicksPerSecond(), PageSize(), stamp, out);
  std::string text;
  ProcPath path;
  ForEachProcessId([&](std::uint32_t pid) {
    if (!ReadText(path.Of(pid, "stat"), text))
      return;
    const auto stat = ParseProcessStat(text);
    if (!stat)
      return;
    const auto statm = ReadText(path.Of(pid, "statm"), text) ? ParseProcessStatm(text) : std::nullopt;
    builder.Append(*stat, statm);
  });
  if (!ReadText("/proc/stat", text))
    FailToRead("/proc/stat");
  builder.Finish(ParseProcStat(text));
}
} // namespace cim::machine
