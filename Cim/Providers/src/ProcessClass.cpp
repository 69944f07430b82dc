// Win32_Process from /proc/<pid>/stat, status, cmdline and the exe link.
//
// | Property            | MI type  | Linux source                                          |
// |---------------------|----------|-------------------------------------------------------|
// | Name, Caption, Description | string | stat comm (the kernel's name of the process)   |
// | ProcessId, Handle   | uint32, string | the process id                                  |
// | ParentProcessId     | uint32   | stat ppid                                             |
// | SessionId           | uint32   | stat session                                          |
// | ExecutablePath      | string   | readlink exe (null for kernel threads or when denied) |
// | CommandLine         | string   | cmdline, arguments joined by blanks (null when empty) |
// | CreationDate        | datetime | btime + stat starttime, local time                    |
// | KernelModeTime      | uint64   | stat stime in 100 ns                                  |
// | UserModeTime        | uint64   | stat utime in 100 ns                                  |
// | ThreadCount         | uint32   | stat num_threads                                      |
// | WorkingSetSize      | uint64   | stat rss × page size (bytes)                          |
// | PeakWorkingSetSize  | uint32   | status VmHWM (KB)                                     |
// | VirtualSize         | uint64   | stat vsize (bytes)                                    |
// | PeakVirtualSize     | uint64   | status VmPeak in bytes                                |
// | PageFaults          | uint32   | stat minflt + majflt                                  |
// | PageFileUsage       | uint32   | status VmData + VmStk (KB): the private memory Windows commits |
// | PrivatePageCount    | uint64   | the same in bytes                                     |
// | Priority            | uint32   | WindowsPriority (nice and scheduling class)           |
// | CSName              | string   | host name                                             |
// | CreationClassName, CSCreationClassName, OSCreationClassName | string | Win32_* class names |
#include "ClassBuilder.h"
#include "Cim/Machine/Classes.h"
#include "Cim/Names.h"

#include <limits>

namespace cim::machine
{
namespace
{
enum P : std::size_t
{
  Name, Caption, Description, ProcessId, Handle, ParentProcessId, SessionId, ExecutablePath, CommandLine,
  CreationDate, KernelModeTime, UserModeTime, ThreadCount, WorkingSetSize, PeakWorkingSetSize, VirtualSize,
  PeakVirtualSize, PageFaults, PageFileUsage, PrivatePageCount, Priority, CSName, CreationClassName,
  CSCreationClassName, OSCreationClassName, Count
};

std::uint32_t ClampTo32(std::uint64_t value)
{
  return value > std::numeric_limits<std::uint32_t>::max() ? std::numeric_limits<std::uint32_t>::max()
                                                           : static_cast<std::uint32_t>(value);
}
} // namespace

std::uint32_t WindowsPriority(const ProcessStat& stat)
{
  // A negative kernel priority is a real-time scheduling class.
  if (stat.priority < 0)
    return 24;
  if (stat.nice >= 15)
    return 4;
  if (stat.nice > 0)
    return 6;
  if (stat.nice == 0)
    return 8;
  if (stat.nice >= -10)
    return 10;
  return 13;
}

std::shared_ptr<const ClassDecl> ProcessClass()
{
  static const auto decl = MakeClass(L"Win32_Process", Count, {
      {L"Name", Type::String},
      {L"Caption", Type::String},
      {L"Description", Type::String},
      {L"ProcessId", Type::UInt32},
      {L"Handle", Type::String, 0, true},
      {L"ParentProcessId", Type::UInt32},
      {L"SessionId", Type::UInt32},
      {L"ExecutablePath", Type::String},
      {L"CommandLine", Type::String},
      {L"CreationDate", Type::DateTime},
      {L"KernelModeTime", Type::UInt64},
      {L"UserModeTime", Type::UInt64},
      {L"ThreadCount", Type::UInt32},
      {L"WorkingSetSize", Type::UInt64},
      {L"PeakWorkingSetSize", Type::UInt32},
      {L"VirtualSize", Type::UInt64},
      {L"PeakVirtualSize", Type::UInt64},
      {L"PageFaults", Type::UInt32},
      {L"PageFileUsage", Type::UInt32},
      {L"PrivatePageCount", Type::UInt64},
      {L"Priority", Type::UInt32},
      {L"CSName", Type::String},
      {L"CreationClassName", Type::String},
      {L"CSCreationClassName", Type::String},
      {L"OSCreationClassName", Type::String},
  });
  return decl;
}

void AppendProcess(const ProcessFacts& facts, const ProcessContext& context, std::vector<Instance>& out)
{
  const auto& stat = facts.stat;
  auto& process = out.emplace_back(ProcessClass());
  auto name = Widen(stat.comm);
  Put(process, Caption, name);
  Put(process, Description, name);
  Put(process, Name, std::move(name));
  Put(process, ProcessId, stat.pid);
  Put(process, Handle, std::to_wstring(stat.pid));
  Put(process, ParentProcessId, stat.ppid);
  Put(process, SessionId, stat.session);
  if (facts.executablePath)
    Put(process, ExecutablePath, Widen(*facts.executablePath));
  if (!facts.cmdline.empty())
    Put(process, CommandLine, Widen(facts.cmdline));

  const auto hz = context.ticksPerSecond == 0 ? 100 : context.ticksPerSecond;
  const auto startSeconds = static_cast<std::int64_t>(context.bootTime + stat.startTicks / hz);
  const auto startMicros = static_cast<std::uint32_t>(stat.startTicks % hz * 1'000'000 / hz);
  Put(process, CreationDate, ToDateTime(startSeconds, startMicros, context.utcOffsetMinutes));
  Put(process, KernelModeTime, TicksTo100ns(stat.systemTicks, hz));
  Put(process, UserModeTime, TicksTo100ns(stat.userTicks, hz));
  Put(process, ThreadCount, ClampTo32(stat.threads));
  Put(process, WorkingSetSize, stat.residentPages * context.pageSize);
  if (facts.status.vmHwm)
    Put(process, PeakWorkingSetSize, ClampTo32(*facts.status.vmHwm));
  Put(process, VirtualSize, stat.virtualBytes);
  if (facts.status.vmPeak)
    Put(process, PeakVirtualSize, *facts.status.vmPeak * 1024);
  Put(process, PageFaults, ClampTo32(stat.minorFaults + stat.majorFaults));
  if (facts.status.vmData)
  {
    const auto privateKb = *facts.status.vmData + facts.status.vmStk.value_or(0);
    Put(process, PageFileUsage, ClampTo32(privateKb));
    Put(process, PrivatePageCount, privateKb * 1024);
  }
  Put(process, Priority, WindowsPriority(stat));
  if (!context.hostName.empty())
    Put(process, CSName, context.hostName);
  Put(process, CreationClassName, std::wstring(L"Win32_Process"));
  Put(process, CSCreationClassName, std::wstring(L"Win32_ComputerSystem"));
  Put(process, OSCreationClassName, std::wstring(L"Win32_OperatingSystem"));
}
} // namespace cim::machine
