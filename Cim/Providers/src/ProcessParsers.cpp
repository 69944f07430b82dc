#include "Cim/Machine/ProcessParsers.h"

#include "Text.h"

namespace cim::machine
{
using namespace text;

std::optional<ProcessStat> ParseProcessStat(std::string_view text)
{
  const auto open = text.find('(');
  const auto close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open)
    return std::nullopt;
  ProcessStat stat;
  const auto pid = ToNumber<std::uint32_t>(Trim(text.substr(0, open)));
  if (!pid)
    return std::nullopt;
  stat.pid = *pid;
  stat.comm = text.substr(open + 1, close - open - 1);

  // Fields 3 onwards (1-based, as proc(5) numbers them) follow the closing parenthesis.
  auto rest = text.substr(close + 1);
  const auto state = NextField(rest);
  if (state.size() != 1)
    return std::nullopt;
  stat.state = state.front();
  std::string_view fields[50];
  std::size_t count = 0;
  for (auto field = NextField(rest); !field.empty() && count < std::size(fields); field = NextField(rest))
    fields[count++] = field;
  // fields[i] is field i + 4 of proc(5); rss is field 24, so 21 fields are needed.
  if (count < 21)
    return std::nullopt;
  const auto at = [&](int procField) { return fields[procField - 4]; };
  const auto ppid = ToNumber<std::uint32_t>(at(4));
  const auto session = ToNumber<std::uint32_t>(at(6));
  const auto minflt = ToNumber<std::uint64_t>(at(10));
  const auto majflt = ToNumber<std::uint64_t>(at(12));
  const auto utime = ToNumber<std::uint64_t>(at(14));
  const auto stime = ToNumber<std::uint64_t>(at(15));
  const auto priority = ToNumber<std::int64_t>(at(18));
  const auto nice = ToNumber<std::int64_t>(at(19));
  const auto threads = ToNumber<std::uint64_t>(at(20));
  const auto start = ToNumber<std::uint64_t>(at(22));
  const auto vsize = ToNumber<std::uint64_t>(at(23));
  const auto rss = ToNumber<std::int64_t>(at(24));
  if (!ppid || !session || !minflt || !majflt || !utime || !stime || !priority || !nice || !threads ||
      !start || !vsize || !rss)
    return std::nullopt;
  stat.ppid = *ppid;
  stat.session = *session;
  stat.minorFaults = *minflt;
  stat.majorFaults = *majflt;
  stat.userTicks = *utime;
  stat.systemTicks = *stime;
  stat.priority = *priority;
  stat.nice = *nice;
  stat.threads = *threads;
  stat.startTicks = *start;
  stat.virtualBytes = *vsize;
  stat.residentPages = *rss < 0 ? 0 : static_cast<std::uint64_t>(*rss);
  return stat;
}

ProcessStatus ParseProcessStatus(std::string_view text)
{
  ProcessStatus status;
  ForEachLine(text, [&](std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
      return;
    const auto key = line.substr(0, colon);
    auto rest = line.substr(colon + 1);
    const auto number = ToNumber<std::uint64_t>(NextField(rest));
    if (!number)
      return;
    if (key == "VmPeak")
      status.vmPeak = number;
    else if (key == "VmSize")
      status.vmSize = number;
    else if (key == "VmHWM")
      status.vmHwm = number;
    else if (key == "VmRSS")
      status.vmRss = number;
    else if (key == "VmData")
      status.vmData = number;
    else if (key == "VmStk")
      status.vmStk = number;
    else if (key == "VmSwap")
      status.vmSwap = number;
    else if (key == "Uid")
      status.uid = static_cast<std::uint32_t>(*number);
  });
  return status;
}

std::optional<ProcessStatm> ParseProcessStatm(std::string_view text)
{
  ProcessStatm statm;
  std::uint64_t* fields[] = {&statm.size, &statm.resident, &statm.shared, &statm.text, &statm.lib, &statm.data};
  for (auto* field : fields)
  {
    const auto number = ToNumber<std::uint64_t>(NextField(text));
    if (!number)
      return std::nullopt;
    *field = *number;
  }
  return statm;
}

std::string ParseCmdline(std::string_view text)
{
  // The arguments end with a NUL each; a process may also have rewritten its own area.
  while (!text.empty() && text.back() == '\0')
    text.remove_suffix(1);
  std::string line(text);
  for (auto& ch : line)
  {
    if (ch == '\0')
      ch = ' ';
  }
  return line;
}
} // namespace cim::machine
