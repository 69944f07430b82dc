// Pure parsers of the machine-wide texts of /proc and /etc: os-release, meminfo, vmstat,
// loadavg, cpuinfo, /proc/stat and /proc/interrupts. They take the text and return facts;
// reading the files is the providers' business, so these are tested on captured texts.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cim::machine
{
using NamedNumbers = std::map<std::string, std::uint64_t, std::less<>>;

std::optional<std::uint64_t> Lookup(const NamedNumbers& numbers, std::string_view name);

// KEY=value lines; values may be quoted with " or ' (backslash escapes inside "");
// comments and malformed lines are skipped.
std::map<std::string, std::string, std::less<>> ParseOsRelease(std::string_view text);

// "Name:   1234 kB" lines: the number as written (kB for sizes, a count for HugePages_*).
NamedNumbers ParseMeminfo(std::string_view text);

// "name value" lines of /proc/vmstat.
NamedNumbers ParseVmstat(std::string_view text);

struct LoadAvg
{
  std::uint64_t runnable = 0;    // scheduling entities runnable now
  std::uint64_t threads = 0;     // scheduling entities in the system
};
std::optional<LoadAvg> ParseLoadavg(std::string_view text);

struct CpuInfo
{
  std::uint32_t logicalProcessors = 0; // "processor" entries
  std::uint32_t packages = 0;          // distinct "physical id" values (0 when absent)
  std::string vendor;                  // first "vendor_id"
  std::string modelName;               // first "model name"
  bool hypervisor = false;             // "hypervisor" among the flags
};
CpuInfo ParseCpuinfo(std::string_view text);

// Times of one "cpu" line in USER_HZ ticks; fields a kernel does not write stay 0.
struct CpuTimes
{
  std::uint64_t user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0, steal = 0;
  // What Windows counts as idle: the processor had nothing to run, waiting on I/O or not.
  std::uint64_t Idle() const { return idle + iowait; }
  std::uint64_t Total() const { return user + nice + system + idle + iowait + irq + softirq + steal; }
};

struct ProcStat
{
  std::optional<CpuTimes> total;
  std::vector<std::pair<std::uint32_t, CpuTimes>> cpus; // by the number of "cpuN", in file order
  std::optional<std::uint64_t> interrupts;              // first number of "intr"
  std::optional<std::uint64_t> contextSwitches;         // "ctxt"
  std::optional<std::uint64_t> bootTime;                // "btime", seconds since 1970 UTC
  std::optional<std::uint64_t> forks;                   // "processes"
  std::optional<std::uint64_t> procsRunning;
  std::optional<std::uint64_t> procsBlocked;
};
ProcStat ParseProcStat(std::string_view text);

// Interrupts handled per CPU (sum of each "CPUn" column over all numeric rows), by CPU number.
std::map<std::uint32_t, std::uint64_t> ParseInterrupts(std::string_view text);
} // namespace cim::machine
