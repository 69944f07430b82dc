// Collectors of the machine-wide raw performance classes: processor, memory, system,
// physical disk and network interface. Each takes its timestamp right after reading its
// main file, so the counters and their timestamp describe the same moment.
#include "Cim/Machine/Classes.h"
#include "Collectors.h"
#include "ProcFiles.h"

#include <dirent.h>
#include <unistd.h>

#include <memory>

namespace cim::machine
{
namespace
{
std::string ReadRequired(const char* path)
{
  std::string text;
  if (!ReadText(path, text))
    FailToRead(path);
  return text;
}

std::uint32_t OnlineProcessors()
{
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<std::uint32_t>(online) : 1;
}

struct DirCloser
{
  void operator()(DIR* dir) const { closedir(dir); }
};

std::set<std::string, std::less<>> ReadPhysicalDisks()
{
  std::set<std::string, std::less<>> disks;
  const std::unique_ptr<DIR, DirCloser> dir(opendir("/sys/block"));
  if (!dir)
    return disks;
  std::string path;
  while (const dirent* entry = readdir(dir.get()))
  {
    const std::string_view name(entry->d_name);
    if (name == "." || name == "..")
      continue;
    path.assign("/sys/block/").append(name);
    if (const auto target = ReadLink(path.c_str()); target && IsPhysicalDisk(*target))
      disks.emplace(name);
  }
  return disks;
}
} // namespace

void CollectProcessorPerf(std::uint64_t perfFrequency, std::vector<Instance>& out)
{
  const auto statText = ReadRequired("/proc/stat");
  const auto stamp = SamplePerfStamp(perfFrequency);
  std::string interruptsText;
  std::map<std::uint32_t, std::uint64_t> interrupts;
  if (ReadText("/proc/interrupts", interruptsText))
    interrupts = ParseInterrupts(interruptsText);
  BuildProcessorPerf(ParseProcStat(statText), interrupts, TicksPerSecond(), stamp, out);
}

void CollectMemoryPerf(std::uint64_t perfFrequency, std::vector<Instance>& out)
{
  const auto meminfo = ReadRequired("/proc/meminfo");
  const auto stamp = SamplePerfStamp(perfFrequency);
  std::string vmstat;
  ReadText("/proc/vmstat", vmstat);
  BuildMemoryPerf(ParseMeminfo(meminfo), ParseVmstat(vmstat), stamp, out);
}

void CollectSystemPerf(std::uint64_t perfFrequency, std::vector<Instance>& out)
{
  SystemPerfFacts facts;
  facts.stat = ParseProcStat(ReadRequired("/proc/stat"));
  const auto stamp = SamplePerfStamp(perfFrequency);
  std::string text;
  if (ReadText("/proc/loadavg", text))
    facts.loadavg = ParseLoadavg(text);
  facts.processCount = CountProcesses();
  facts.onlineProcessors = OnlineProcessors();
  BuildSystemPerf(facts, stamp, out);
}

void CollectPhysicalDiskPerf(std::uint64_t perfFrequency, std::vector<Instance>& out)
{
  const auto physical = ReadPhysicalDisks();
  const auto text = ReadRequired("/proc/diskstats");
  const auto stamp = SamplePerfStamp(perfFrequency);
  BuildPhysicalDiskPerf(ParseDiskstats(text), physical, stamp, out);
}

void CollectNetworkInterfacePerf(std::uint64_t perfFrequency, std::vector<Instance>& out)
{
  const auto text = ReadRequired("/proc/net/dev");
  const auto stamp = SamplePerfStamp(perfFrequency);
  const auto interfaces = ParseNetDev(text);
  std::map<std::string, std::int64_t, std::less<>> speeds;
  std::string path;
  std::string speedText;
  for (const auto& dev : interfaces)
  {
    if (dev.name == "lo")
      continue;
    path.assign("/sys/class/net/").append(dev.name).append("/speed");
    // Reading the speed of a link that is down fails with EINVAL: its bandwidth is unknown.
    if (!ReadText(path.c_str(), speedText))
      continue;
    try
    {
      speeds[dev.name] = std::stoll(speedText);
    }
    catch (const std::exception&)
    {
      // Not a number: unknown.
    }
  }
  BuildNetworkInterfacePerf(interfaces, speeds, stamp, out);
}
} // namespace cim::machine
