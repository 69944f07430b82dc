// Win32_PerfRawData_PerfOS_Memory from /proc/meminfo (kB) and /proc/vmstat (event counts).
// A single instance whose Name is null, as on Windows.
//
// | Counter                  | MI type | CounterType                          | Linux source                 |
// |--------------------------|---------|--------------------------------------|------------------------------|
// | AvailableBytes           | uint64  | PERF_COUNTER_LARGE_RAWCOUNT 0x00010100 | MemAvailable × 1024        |
// | AvailableKBytes          | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | MemAvailable                 |
// | AvailableMBytes          | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | MemAvailable / 1024          |
// | CacheBytes               | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | Cached × 1024                |
// | CommittedBytes           | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | Committed_AS × 1024          |
// | CommitLimit              | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | CommitLimit × 1024           |
// | FreeAndZeroPageListBytes | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | MemFree × 1024               |
// | ModifiedPageListBytes    | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | (Dirty + Writeback) × 1024   |
// | PoolPagedBytes           | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | SReclaimable × 1024 (kernel memory it can give back) |
// | PoolNonpagedBytes        | uint64  | PERF_COUNTER_LARGE_RAWCOUNT          | SUnreclaim × 1024            |
// | PageFaultsPersec         | uint32  | PERF_COUNTER_COUNTER 0x10410400      | vmstat pgfault               |
// | PageReadsPersec          | uint32  | PERF_COUNTER_COUNTER                 | pgmajfault (reads to resolve hard faults) |
// | PagesInputPersec         | uint32  | PERF_COUNTER_COUNTER                 | pgmajfault + pswpin          |
// | PagesOutputPersec        | uint32  | PERF_COUNTER_COUNTER                 | pswpout                      |
// | PageWritesPersec         | uint32  | PERF_COUNTER_COUNTER                 | pswpout                      |
// | PagesPersec              | uint32  | PERF_COUNTER_COUNTER                 | PagesInput + PagesOutput     |
// | PercentCommittedBytesInUse | uint32 | PERF_RAW_FRACTION 0x20020400        | Committed_AS (kB)            |
// | PercentCommittedBytesInUse_Base | uint32 | PERF_RAW_BASE 0x40030403     | CommitLimit (kB)             |
// The fraction and its base are 32-bit, as Windows declares them; both are halved together until
// the base fits, which keeps their ratio. The base follows its counter, as Windows requires
// (https://learn.microsoft.com/en-us/windows/win32/wmisdk/base-counter-types).
#include "ClassBuilder.h"
#include "Cim/Machine/Classes.h"
#include "Cim/Machine/CounterTypes.h"

#include <cstdint>

namespace cim::machine
{
namespace
{
enum P : std::size_t
{
  AvailableBytes = PerfBaseCount, AvailableKBytes, AvailableMBytes, CacheBytes, CommittedBytes, CommitLimit,
  FreeAndZeroPageListBytes, ModifiedPageListBytes, PoolPagedBytes, PoolNonpagedBytes, PageFaultsPersec,
  PageReadsPersec, PagesInputPersec, PagesOutputPersec, PageWritesPersec, PagesPersec, PercentCommittedBytesInUse,
  PercentCommittedBytesInUseBase, Count
};

void PutBytes(Instance& memory, std::size_t index, std::optional<std::uint64_t> kb)
{
  if (kb)
    Put(memory, index, *kb * 1024);
}

void PutCount(Instance& memory, std::size_t index, std::optional<std::uint64_t> count)
{
  // The Windows counters are 32-bit and wrap; a wrap costs one sample.
  if (count)
    Put(memory, index, static_cast<std::uint32_t>(*count));
}

void PutCommittedFraction(Instance& memory, std::optional<std::uint64_t> committed, std::optional<std::uint64_t> limit)
{
  if (!committed || !limit)
    return;
  auto part = *committed;
  auto whole = *limit;
  while (whole > UINT32_MAX || part > UINT32_MAX)
  {
    part >>= 1;
    whole >>= 1;
  }
  Put(memory, PercentCommittedBytesInUse, static_cast<std::uint32_t>(part));
  Put(memory, PercentCommittedBytesInUseBase, static_cast<std::uint32_t>(whole));
}
} // namespace

std::shared_ptr<const ClassDecl> MemoryPerfClass()
{
  using namespace counter;
  static const auto decl = MakePerfClass(L"Win32_PerfRawData_PerfOS_Memory", Count, PerfInstances::Single, {
      {L"AvailableBytes", Type::UInt64, LargeRawCount},
      {L"AvailableKBytes", Type::UInt64, LargeRawCount},
      {L"AvailableMBytes", Type::UInt64, LargeRawCount},
      {L"CacheBytes", Type::UInt64, LargeRawCount},
      {L"CommittedBytes", Type::UInt64, LargeRawCount},
      {L"CommitLimit", Type::UInt64, LargeRawCount},
      {L"FreeAndZeroPageListBytes", Type::UInt64, LargeRawCount},
      {L"ModifiedPageListBytes", Type::UInt64, LargeRawCount},
      {L"PoolPagedBytes", Type::UInt64, LargeRawCount},
      {L"PoolNonpagedBytes", Type::UInt64, LargeRawCount},
      {L"PageFaultsPersec", Type::UInt32, Counter},
      {L"PageReadsPersec", Type::UInt32, Counter},
      {L"PagesInputPersec", Type::UInt32, Counter},
      {L"PagesOutputPersec", Type::UInt32, Counter},
      {L"PageWritesPersec", Type::UInt32, Counter},
      {L"PagesPersec", Type::UInt32, Counter},
      {L"PercentCommittedBytesInUse", Type::UInt32, RawFraction},
      {L"PercentCommittedBytesInUse_Base", Type::UInt32, RawBase},
  });
  return decl;
}

void BuildMemoryPerf(const NamedNumbers& meminfo, const NamedNumbers& vmstat, const PerfStamp& stamp,
                     std::vector<Instance>& out)
{
  auto& memory = out.emplace_back(MemoryPerfClass());
  SetPerfBase(memory, std::nullopt, stamp);
  const auto available = Lookup(meminfo, "MemAvailable");
  PutBytes(memory, AvailableBytes, available);
  if (available)
  {
    Put(memory, AvailableKBytes, *available);
    Put(memory, AvailableMBytes, *available / 1024);
  }
  PutBytes(memory, CacheBytes, Lookup(meminfo, "Cached"));
  const auto committed = Lookup(meminfo, "Committed_AS");
  const auto limit = Lookup(meminfo, "CommitLimit");
  PutBytes(memory, CommittedBytes, committed);
  PutBytes(memory, CommitLimit, limit);
  PutCommittedFraction(memory, committed, limit);
  PutBytes(memory, FreeAndZeroPageListBytes, Lookup(meminfo, "MemFree"));
  const auto dirty = Lookup(meminfo, "Dirty");
  const auto writeback = Lookup(meminfo, "Writeback");
  if (dirty && writeback)
    PutBytes(memory, ModifiedPageListBytes, *dirty + *writeback);
  PutBytes(memory, PoolPagedBytes, Lookup(meminfo, "SReclaimable"));
  PutBytes(memory, PoolNonpagedBytes, Lookup(meminfo, "SUnreclaim"));

  PutCount(memory, PageFaultsPersec, Lookup(vmstat, "pgfault"));
  const auto major = Lookup(vmstat, "pgmajfault");
  const auto swapIn = Lookup(vmstat, "pswpin");
  const auto swapOut = Lookup(vmstat, "pswpout");
  PutCount(memory, PageReadsPersec, major);
  std::optional<std::uint64_t> input;
  if (major && swapIn)
    input = *major + *swapIn;
  PutCount(memory, PagesInputPersec, input);
  PutCount(memory, PagesOutputPersec, swapOut);
  PutCount(memory, PageWritesPersec, swapOut);
  if (input && swapOut)
    PutCount(memory, PagesPersec, *input + *swapOut);
}
} // namespace cim::machine
