#include "Cim/Machine/SystemParsers.h"

#include "Text.h"

#include <set>

namespace cim::machine
{
using namespace text;

std::optional<std::uint64_t> Lookup(const NamedNumbers& numbers, std::string_view name)
{
  const auto found = numbers.find(name);
  if (found == numbers.end())
    return std::nullopt;
  return found->second;
}

namespace
{
std::string Unquote(std::string_view value)
{
  if (value.size() >= 2 && value.front() == '\'' && value.back() == '\'')
    return std::string(value.substr(1, value.size() - 2));
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
  {
    std::string out;
    value = value.substr(1, value.size() - 2);
    for (std::size_t i = 0; i < value.size(); ++i)
    {
      if (value[i] == '\\' && i + 1 < value.size())
        ++i;
      out.push_back(value[i]);
    }
    return out;
  }
  return std::string(value);
}
} // namespace

std::map<std::string, std::string, std::less<>> ParseOsRelease(std::string_view text)
{
  std::map<std::string, std::string, std::less<>> values;
  ForEachLine(text, [&](std::string_view line) {
    line = Trim(line);
    if (line.empty() || line.front() == '#')
      return;
    const auto equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0)
      return;
    values[std::string(Trim(line.substr(0, equals)))] = Unquote(Trim(line.substr(equals + 1)));
  });
  return values;
}

NamedNumbers ParseMeminfo(std::string_view text)
{
  NamedNumbers values;
  ForEachLine(text, [&](std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
      return;
    auto rest = line.substr(colon + 1);
    if (const auto number = ToNumber<std::uint64_t>(NextField(rest)))
      values.emplace(std::string(line.substr(0, colon)), *number);
  });
  return values;
}

NamedNumbers ParseVmstat(std::string_view text)
{
  NamedNumbers values;
  ForEachLine(text, [&](std::string_view line) {
    const auto name = NextField(line);
    if (const auto number = ToNumber<std::uint64_t>(NextField(line)); number && !name.empty())
      values.emplace(std::string(name), *number);
  });
  return values;
}

std::optional<LoadAvg> ParseLoadavg(std::string_view text)
{
  // "0.00 0.01 0.05 2/345 6789": the fourth field is runnable/total.
  for (int i = 0; i < 3; ++i)
    NextField(text);
  const auto counts = NextField(text);
  const auto slash = counts.find('/');
  if (slash == std::string_view::npos)
    return std::nullopt;
  const auto runnable = ToNumber<std::uint64_t>(counts.substr(0, slash));
  const auto total = ToNumber<std::uint64_t>(counts.substr(slash + 1));
  if (!runnable || !total)
    return std::nullopt;
  return LoadAvg{*runnable, *total};
}

CpuInfo ParseCpuinfo(std::string_view text)
{
  CpuInfo info;
  std::set<std::string_view> packages;
  ForEachLine(text, [&](std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
      return;
    const auto key = Trim(line.substr(0, colon));
    const auto value = Trim(line.substr(colon + 1));
    if (key == "processor")
      ++info.logicalProcessors;
    else if (key == "physical id")
      packages.insert(value);
    else if (key == "vendor_id" && info.vendor.empty())
      info.vendor = value;
    else if (key == "model name" && info.modelName.empty())
      info.modelName = value;
    else if (key == "flags" && !info.hypervisor)
    {
      auto flags = value;
      for (auto flag = NextField(flags); !flag.empty(); flag = NextField(flags))
      {
        if (flag == "hypervisor")
          info.hypervisor = true;
      }
    }
  });
  info.packages = static_cast<std::uint32_t>(packages.size());
  return info;
}

namespace
{
CpuTimes ParseCpuTimes(std::string_view rest)
{
  CpuTimes times;
  std::uint64_t* fields[] = {&times.user, &times.nice, &times.system, &times.idle,
                             &times.iowait, &times.irq, &times.softirq, &times.steal};
  for (auto* field : fields)
  {
    const auto number = ToNumber<std::uint64_t>(NextField(rest));
    if (!number)
      break;
    *field = *number;
  }
  return times;
}
} // namespace

ProcStat ParseProcStat(std::string_view text)
{
  ProcStat stat;
  ForEachLine(text, [&](std::string_view line) {
    const auto key = NextField(line);
    if (key == "cpu")
      stat.total = ParseCpuTimes(line);
    else if (key.size() > 3 && key.substr(0, 3) == "cpu")
    {
      if (const auto number = ToNumber<std::uint32_t>(key.substr(3)))
        stat.cpus.emplace_back(*number, ParseCpuTimes(line));
    }
    else
    {
      const auto value = ToNumber<std::uint64_t>(NextField(line));
      if (!value)
        return;
      if (key == "intr")
        stat.interrupts = value;
      else if (key == "ctxt")
        stat.contextSwitches = value;
      else if (key == "btime")
        stat.bootTime = value;
      else if (key == "processes")
        stat.forks = value;
      else if (key == "procs_running")
        stat.procsRunning = value;
      else if (key == "procs_blocked")
        stat.procsBlocked = value;
    }
  });
  return stat;
}

std::map<std::uint32_t, std::uint64_t> ParseInterrupts(std::string_view text)
{
  std::map<std::uint32_t, std::uint64_t> perCpu;
  std::vector<std::uint32_t> columns;
  bool header = true;
  ForEachLine(text, [&](std::string_view line) {
    if (header)
    {
      header = false;
      for (auto name = NextField(line); !name.empty(); name = NextField(line))
      {
        const auto number = name.size() > 3 ? ToNumber<std::uint32_t>(name.substr(3)) : std::nullopt;
        columns.push_back(number.value_or(0));
        perCpu.emplace(number.value_or(0), 0);
      }
      return;
    }
    // "  0:   12   34   IO-APIC ..." and "NMI:  1  2  Non-maskable ...": the label, then one
    // count per CPU column; rows with fewer numbers (ERR, MIS) count only what they have.
    NextField(line);
    for (const auto cpu : columns)
    {
      const auto number = ToNumber<std::uint64_t>(NextField(line));
      if (!number)
        break;
      perCpu[cpu] += *number;
    }
  });
  return perCpu;
}
} // namespace cim::machine
