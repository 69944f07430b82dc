// Win32_PerfRawData_PerfProc_Process from /proc/<pid>/stat and statm, plus "Idle" (the idle
// time of /proc/stat) and "_Total" (the sum of all, Idle included), as Windows shows them.
// Names are the kernel's process names; repeated names get "#1", "#2"... in process id order.
// ElapsedTime is measured against Timestamp_Object (the FILETIME of the sample, 10,000,000/s),
// the 100 ns timers against Timestamp_Sys100NS, as Windows measures them.
//
// | Counter               | MI type | CounterType                        | Linux source                  |
// |-----------------------|---------|------------------------------------|-------------------------------|
// | IDProcess             | uint32  | PERF_COUNTER_RAWCOUNT 0x00010000   | pid                           |
// | CreatingProcessID     | uint32  | PERF_COUNTER_RAWCOUNT              | ppid                          |
// | ElapsedTime           | uint64  | PERF_ELAPSED_TIME 0x30240500       | start as a FILETIME: boot FILETIME + starttime; Idle and _Total: boot |
// | PercentProcessorTime  | uint64  | PERF_100NSEC_TIMER 0x20510500      | utime + stime in 100 ns       |
// | PercentUserTime       | uint64  | PERF_100NSEC_TIMER                 | utime                         |
// | PercentPrivilegedTime | uint64  | PERF_100NSEC_TIMER                 | stime                         |
// | PageFaultsPersec      | uint32  | PERF_COUNTER_COUNTER 0x10410400    | minflt + majflt               |
// | ThreadCount           | uint32  | PERF_COUNTER_RAWCOUNT              | num_threads                   |
// | PriorityBase          | uint32  | PERF_COUNTER_RAWCOUNT              | WindowsPriority               |
// | VirtualBytes          | uint64  | PERF_COUNTER_LARGE_RAWCOUNT 0x00010100 | vsize                     |
// | WorkingSet            | uint64  | PERF_COUNTER_LARGE_RAWCOUNT        | rss × page size               |
// | WorkingSetPrivate     | uint64  | PERF_COUNTER_LARGE_RAWCOUNT        | statm (resident − shared) × page size |
// | PrivateBytes          | uint64  | PERF_COUNTER_LARGE_RAWCOUNT        | statm data × page size        |
// | PageFileBytes         | uint64  | PERF_COUNTER_LARGE_RAWCOUNT        | statm data × page size        |
// | HandleCount           | uint32  | PERF_COUNTER_RAWCOUNT              | null: other users' fd tables are closed to us |
#include "ClassBuilder.h"
#include "Cim/Machine/Classes.h"
#include "Cim/Machine/CounterTypes.h"
#include "Cim/Names.h"

namespace cim::machine
{
namespace
{
enum P : std::size_t
{
  IDProcess = PerfBaseCount, CreatingProcessID, ElapsedTime, PercentProcessorTime, PercentUserTime,
  PercentPrivilegedTime, PageFaultsPersec, ThreadCount, PriorityBase, VirtualBytes, WorkingSet, WorkingSetPrivate,
  PrivateBytes, PageFileBytes, HandleCount, Count
};
} // namespace

std::shared_ptr<const ClassDecl> ProcessPerfClass()
{
  using namespace counter;
  static const auto decl = MakePerfClass(L"Win32_PerfRawData_PerfProc_Process", Count, PerfInstances::Named, {
      {L"IDProcess", Type::UInt32, RawCount},
      {L"CreatingProcessID", Type::UInt32, RawCount},
      {L"ElapsedTime", Type::UInt64, counter::ElapsedTime},
      {L"PercentProcessorTime", Type::UInt64, Timer100ns},
      {L"PercentUserTime", Type::UInt64, Timer100ns},
      {L"PercentPrivilegedTime", Type::UInt64, Timer100ns},
      {L"PageFaultsPersec", Type::UInt32, Counter},
      {L"ThreadCount", Type::UInt32, RawCount},
      {L"PriorityBase", Type::UInt32, RawCount},
      {L"VirtualBytes", Type::UInt64, LargeRawCount},
      {L"WorkingSet", Type::UInt64, LargeRawCount},
      {L"WorkingSetPrivate", Type::UInt64, LargeRawCount},
      {L"PrivateBytes", Type::UInt64, LargeRawCount},
      {L"PageFileBytes", Type::UInt64, LargeRawCount},
      {L"HandleCount", Type::UInt32, RawCount},
  });
  return decl;
}

ProcessPerfBuilder::ProcessPerfBuilder(std::uint64_t ticksPerSecond, std::uint64_t pageSize, const PerfStamp& stamp,
                                       std::vector<Instance>& out)
    : m_ticksPerSecond(ticksPerSecond == 0 ? 100 : ticksPerSecond), m_pageSize(pageSize), m_stamp(stamp), m_out(out)
{
}

void ProcessPerfBuilder::Append(const ProcessStat& stat, const std::optional<ProcessStatm>& statm)
{
  auto& process = m_out.emplace_back(ProcessPerfClass());
  auto name = Widen(stat.comm);
  const auto seen = m_nameCounts[stat.comm]++;
  if (seen != 0)
    name += L'#' + std::to_wstring(seen);
  SetPerfBase(process, std::move(name), m_stamp);

  const auto user = TicksTo100ns(stat.userTicks, m_ticksPerSecond);
  const auto privileged = TicksTo100ns(stat.systemTicks, m_ticksPerSecond);
  const auto faults = stat.minorFaults + stat.majorFaults;
  const auto workingSet = stat.residentPages * m_pageSize;
  Put(process, IDProcess, stat.pid);
  Put(process, CreatingProcessID, stat.ppid);
  Put(process, ElapsedTime, m_stamp.BootFileTime() + TicksTo100ns(stat.startTicks, m_ticksPerSecond));
  Put(process, PercentProcessorTime, user + privileged);
  Put(process, PercentUserTime, user);
  Put(process, PercentPrivilegedTime, privileged);
  Put(process, PageFaultsPersec, static_cast<std::uint32_t>(faults));
  Put(process, ThreadCount, static_cast<std::uint32_t>(stat.threads));
  Put(process, PriorityBase, WindowsPriority(stat));
  Put(process, VirtualBytes, stat.virtualBytes);
  Put(process, WorkingSet, workingSet);
  m_user += user;
  m_privileged += privileged;
  m_faults += faults;
  m_threads += stat.threads;
  m_virtual += stat.virtualBytes;
  m_workingSet += workingSet;
  if (statm)
  {
    const auto privateSet = (statm->resident > statm->shared ? statm->resident - statm->shared : 0) * m_pageSize;
    const auto privateBytes = statm->data * m_pageSize;
    Put(process, WorkingSetPrivate, privateSet);
    Put(process, PrivateBytes, privateBytes);
    Put(process, PageFileBytes, privateBytes);
    m_workingSetPrivate += privateSet;
    m_private += privateBytes;
  }
}

void ProcessPerfBuilder::Finish(const ProcStat& systemStat)
{
  const auto decl = ProcessPerfClass();
  std::uint64_t idleTime = 0;
  if (systemStat.total)
  {
    // The idle time of every CPU, as the Windows Idle process accounts it.
    idleTime = TicksTo100ns(systemStat.total->Idle(), m_ticksPerSecond);
    auto& idle = m_out.emplace_back(decl);
    SetPerfBase(idle, std::wstring(L"Idle"), m_stamp);
    Put(idle, IDProcess, std::uint32_t{0});
    Put(idle, CreatingProcessID, std::uint32_t{0});
    Put(idle, ElapsedTime, m_stamp.BootFileTime());
    Put(idle, PercentProcessorTime, idleTime);
    Put(idle, PercentUserTime, std::uint64_t{0});
    Put(idle, PercentPrivilegedTime, idleTime);
    Put(idle, PageFaultsPersec, std::uint32_t{0});
    Put(idle, ThreadCount, static_cast<std::uint32_t>(systemStat.cpus.size()));
    Put(idle, PriorityBase, std::uint32_t{0});
    Put(idle, VirtualBytes, std::uint64_t{0});
    Put(idle, WorkingSet, std::uint64_t{0});
    Put(idle, WorkingSetPrivate, std::uint64_t{0});
    Put(idle, PrivateBytes, std::uint64_t{0});
    Put(idle, PageFileBytes, std::uint64_t{0});
  }
  auto& total = m_out.emplace_back(decl);
  SetPerfBase(total, std::wstring(L"_Total"), m_stamp);
  Put(total, IDProcess, std::uint32_t{0});
  Put(total, CreatingProcessID, std::uint32_t{0});
  Put(total, ElapsedTime, m_stamp.BootFileTime());
  Put(total, PercentProcessorTime, m_user + m_privileged + idleTime);
  Put(total, PercentUserTime, m_user);
  Put(total, PercentPrivilegedTime, m_privileged + idleTime);
  Put(total, PageFaultsPersec, static_cast<std::uint32_t>(m_faults));
  Put(total, ThreadCount, static_cast<std::uint32_t>(m_threads + systemStat.cpus.size()));
  Put(total, PriorityBase, std::uint32_t{0});
  Put(total, VirtualBytes, m_virtual);
  Put(total, WorkingSet, m_workingSet);
  Put(total, WorkingSetPrivate, m_workingSetPrivate);
  Put(total, PrivateBytes, m_private);
  Put(total, PageFileBytes, m_private);
}
} // namespace cim::machine
