// Pure parsers of the per-process texts of /proc/<pid>: stat, status, statm and cmdline.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cim::machine
{
// /proc/<pid>/stat; times in USER_HZ ticks, start time in ticks since boot, sizes as the
// kernel writes them (vsize in bytes, rss in pages).
struct ProcessStat
{
  std::uint32_t pid = 0;
  std::string comm;
  char state = '?';
  std::uint32_t ppid = 0;
  std::uint32_t session = 0;
  std::uint64_t minorFaults = 0, majorFaults = 0;
  std::uint64_t userTicks = 0, systemTicks = 0;
  std::int64_t priority = 0, nice = 0;
  std::uint64_t threads = 0;
  std::uint64_t startTicks = 0;
  std::uint64_t virtualBytes = 0;
  std::uint64_t residentPages = 0;
};
// The command name sits between the first '(' and the last ')' and may itself hold blanks
// and parentheses; everything after it is split on blanks.
std::optional<ProcessStat> ParseProcessStat(std::string_view text);

// The sizes of /proc/<pid>/status that the process classes use, in kB; absent for kernel threads.
struct ProcessStatus
{
  std::optional<std::uint64_t> vmPeak, vmSize, vmHwm, vmRss, vmData, vmStk, vmSwap;
  std::optional<std::uint32_t> uid; // real user id
};
ProcessStatus ParseProcessStatus(std::string_view text);

// /proc/<pid>/statm, in pages.
struct ProcessStatm
{
  std::uint64_t size = 0, resident = 0, shared = 0, text = 0, lib = 0, data = 0;
};
std::optional<ProcessStatm> ParseProcessStatm(std::string_view text);

// NUL-separated arguments joined with single blanks; empty for kernel threads.
std::string ParseCmdline(std::string_view text);
} // namespace cim::machine
