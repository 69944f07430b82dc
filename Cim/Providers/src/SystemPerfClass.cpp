// Win32_PerfRawData_PerfOS_System from /proc/stat, /proc/loadavg and the process count.
// A single instance whose Name is null, as on Windows.
//
// | Counter               | MI type | CounterType                       | Linux source                    |
// |-----------------------|---------|-----------------------------------|---------------------------------|
// | ContextSwitchesPersec | uint32  | PERF_COUNTER_COUNTER 0x10410400   | /proc/stat ctxt                 |
// | Processes             | uint32  | PERF_COUNTER_RAWCOUNT 0x00010000  | numeric entries of /proc        |
// | Threads               | uint32  | PERF_COUNTER_RAWCOUNT             | loadavg total scheduling entities |
// | ProcessorQueueLength  | uint32  | PERF_COUNTER_RAWCOUNT             | procs_running minus online CPUs (ready, not running), at least 0 |
// | SystemUpTime          | uint64  | PERF_ELAPSED_TIME 0x30240500      | the boot moment as a FILETIME (wall clock minus CLOCK_BOOTTIME) |
// SystemUpTime is measured, as on Windows, against the object time base: Timestamp_Object (the
// FILETIME of the sample) at Frequency_Object 10,000,000.
#include "ClassBuilder.h"
#include "Cim/Machine/Classes.h"
#include "Cim/Machine/CounterTypes.h"

namespace cim::machine
{
namespace
{
enum P : std::size_t
{
  ContextSwitchesPersec = PerfBaseCount, Processes, Threads, ProcessorQueueLength, SystemUpTime, Count
};
} // namespace

std::shared_ptr<const ClassDecl> SystemPerfClass()
{
  using namespace counter;
  static const auto decl = MakePerfClass(L"Win32_PerfRawData_PerfOS_System", Count, PerfInstances::Single, {
      {L"ContextSwitchesPersec", Type::UInt32, Counter},
      {L"Processes", Type::UInt32, RawCount},
      {L"Threads", Type::UInt32, RawCount},
      {L"ProcessorQueueLength", Type::UInt32, RawCount},
      {L"SystemUpTime", Type::UInt64, ElapsedTime},
  });
  return decl;
}

void BuildSystemPerf(const SystemPerfFacts& facts, const PerfStamp& stamp, std::vector<Instance>& out)
{
  auto& system = out.emplace_back(SystemPerfClass());
  SetPerfBase(system, std::nullopt, stamp);
  if (facts.stat.contextSwitches)
    Put(system, ContextSwitchesPersec, static_cast<std::uint32_t>(*facts.stat.contextSwitches));
  PutIf(system, Processes, facts.processCount);
  if (facts.loadavg)
    Put(system, Threads, static_cast<std::uint32_t>(facts.loadavg->threads));
  if (facts.stat.procsRunning)
  {
    const auto running = *facts.stat.procsRunning;
    const auto queued = running > facts.onlineProcessors ? running - facts.onlineProcessors : 0;
    Put(system, ProcessorQueueLength, static_cast<std::uint32_t>(queued));
  }
  Put(system, SystemUpTime, stamp.BootFileTime());
}
} // namespace cim::machine
