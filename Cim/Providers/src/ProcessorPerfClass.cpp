// Win32_PerfRawData_PerfOS_Processor from /proc/stat and /proc/interrupts.
// Times are USER_HZ ticks turned into 100 ns units, as Windows counts processor time; the 100 ns
// timers are measured against Timestamp_Sys100NS, whatever the host's performance frequency.
//
// | Counter               | MI type | CounterType                     | Linux source (per CPU)       |
// |-----------------------|---------|---------------------------------|------------------------------|
// | PercentProcessorTime  | uint64  | PERF_100NSEC_TIMER_INV 0x21510500 | idle + iowait (time not busy) |
// | PercentIdleTime       | uint64  | PERF_100NSEC_TIMER 0x20510500   | idle + iowait                |
// | PercentUserTime       | uint64  | PERF_100NSEC_TIMER 0x20510500   | user + nice                  |
// | PercentPrivilegedTime | uint64  | PERF_100NSEC_TIMER 0x20510500   | system + irq + softirq       |
// | PercentInterruptTime  | uint64  | PERF_100NSEC_TIMER 0x20510500   | irq                          |
// | PercentDPCTime        | uint64  | PERF_100NSEC_TIMER 0x20510500   | softirq (deferred work)      |
// | InterruptsPersec      | uint32  | PERF_COUNTER_COUNTER 0x10410400 | the CPU's column of /proc/interrupts |
// "_Total": the "cpu" line's times divided by the number of CPUs (so its percentages are those
// of the whole machine), interrupts summed over CPUs (else the "intr" total of /proc/stat).
#include "ClassBuilder.h"
#include "Cim/Machine/Classes.h"
#include "Cim/Machine/CounterTypes.h"

namespace cim::machine
{
namespace
{
enum P : std::size_t
{
  PercentProcessorTime = PerfBaseCount, PercentIdleTime, PercentUserTime, PercentPrivilegedTime,
  PercentInterruptTime, PercentDPCTime, InterruptsPersec, Count
};

void SetTimes(Instance& cpu, const CpuTimes& times, std::uint64_t hz, std::uint64_t divisor)
{
  const auto convert = [&](std::uint64_t ticks) { return TicksTo100ns(ticks, hz) / divisor; };
  const auto idle = convert(times.Idle());
  Put(cpu, PercentProcessorTime, idle);
  Put(cpu, PercentIdleTime, idle);
  Put(cpu, PercentUserTime, convert(times.user + times.nice));
  Put(cpu, PercentPrivilegedTime, convert(times.system + times.irq + times.softirq));
  Put(cpu, PercentInterruptTime, convert(times.irq));
  Put(cpu, PercentDPCTime, convert(times.softirq));
}
} // namespace

std::shared_ptr<const ClassDecl> ProcessorPerfClass()
{
  using namespace counter;
  static const auto decl = MakePerfClass(L"Win32_PerfRawData_PerfOS_Processor", Count, PerfInstances::Named, {
      {L"PercentProcessorTime", Type::UInt64, Timer100nsInv},
      {L"PercentIdleTime", Type::UInt64, Timer100ns},
      {L"PercentUserTime", Type::UInt64, Timer100ns},
      {L"PercentPrivilegedTime", Type::UInt64, Timer100ns},
      {L"PercentInterruptTime", Type::UInt64, Timer100ns},
      {L"PercentDPCTime", Type::UInt64, Timer100ns},
      {L"InterruptsPersec", Type::UInt32, Counter},
  });
  return decl;
}

void BuildProcessorPerf(const ProcStat& stat, const std::map<std::uint32_t, std::uint64_t>& interrupts,
                        std::uint64_t ticksPerSecond, const PerfStamp& stamp, std::vector<Instance>& out)
{
  const auto decl = ProcessorPerfClass();
  std::uint64_t interruptTotal = 0;
  for (const auto& [number, times] : stat.cpus)
  {
    auto& cpu = out.emplace_back(decl);
    SetPerfBase(cpu, std::to_wstring(number), stamp);
    SetTimes(cpu, times, ticksPerSecond, 1);
    if (const auto found = interrupts.find(number); found != interrupts.end())
    {
      // The 32-bit Windows counter wraps like the original; a wrap costs one sample.
      Put(cpu, InterruptsPersec, static_cast<std::uint32_t>(found->second));
      interruptTotal += found->second;
    }
  }
  if (!stat.total)
    return;
  auto& total = out.emplace_back(decl);
  SetPerfBase(total, std::wstring(L"_Total"), stamp);
  SetTimes(total, *stat.total, ticksPerSecond, stat.cpus.empty() ? 1 : stat.cpus.size());
  if (!interrupts.empty())
    Put(total, InterruptsPersec, static_cast<std::uint32_t>(interruptTotal));
  else if (stat.interrupts)
    Put(total, InterruptsPersec, static_cast<std::uint32_t>(*stat.interrupts));
}
} // namespace cim::machine
