// Win32_PerfRawData_PerfDisk_PhysicalDisk from /proc/diskstats, for the whole disks of
// /sys/block that are not virtual (no loop, ram, zram, device-mapper or md devices).
// Instance names are the kernel's device names ("sda", "nvme0n1") and "_Total".
// Milliseconds become 100 ns units (× 10,000), sectors are 512 bytes. Properties, types and
// counter types are those of the Windows class
// (https://learn.microsoft.com/en-us/previous-versions/aa394308(v=vs.85)); each base follows its
// counter.
//
// | Counter                  | MI type | CounterType                               | Linux source            |
// |--------------------------|---------|-------------------------------------------|-------------------------|
// | PercentDiskTime          | uint64  | PERF_PRECISION_100NS_TIMER 0x20570500     | time doing I/O (io_ticks) |
// | PercentDiskReadTime      | uint64  | PERF_PRECISION_100NS_TIMER                | time spent reading      |
// | PercentDiskWriteTime     | uint64  | PERF_PRECISION_100NS_TIMER                | time spent writing      |
// | PercentIdleTime          | uint64  | PERF_PRECISION_100NS_TIMER                | time since boot minus io_ticks |
// | (each of the four)_Base  | uint64  | PERF_PRECISION_TIMESTAMP 0x40030500       | time since boot in 100 ns (CLOCK_BOOTTIME) |
// | AvgDiskQueueLength       | uint64  | PERF_COUNTER_100NS_QUEUELEN_TYPE 0x00550500 | weighted time in queue |
// | AvgDiskReadQueueLength   | uint64  | PERF_COUNTER_100NS_QUEUELEN_TYPE          | time spent reading      |
// | AvgDiskWriteQueueLength  | uint64  | PERF_COUNTER_100NS_QUEUELEN_TYPE          | time spent writing      |
// | CurrentDiskQueueLength   | uint32  | PERF_COUNTER_RAWCOUNT 0x00010000          | I/Os in progress        |
// | DiskReadBytesPersec      | uint64  | PERF_COUNTER_BULK_COUNT 0x10410500        | sectors read × 512      |
// | DiskWriteBytesPersec     | uint64  | PERF_COUNTER_BULK_COUNT                   | sectors written × 512   |
// | DiskBytesPersec          | uint64  | PERF_COUNTER_BULK_COUNT                   | both                    |
// | DiskReadsPersec          | uint32  | PERF_COUNTER_COUNTER 0x10410400           | reads completed         |
// | DiskWritesPersec         | uint32  | PERF_COUNTER_COUNTER                      | writes completed        |
// | DiskTransfersPersec      | uint32  | PERF_COUNTER_COUNTER                      | both                    |
// | AvgDisksecPerRead        | uint32  | PERF_AVERAGE_TIMER 0x30020400             | time spent reading in PerfTime ticks |
// | AvgDisksecPerRead_Base   | uint32  | PERF_AVERAGE_BASE 0x40030402              | reads completed         |
// | AvgDisksecPerWrite(_Base), AvgDisksecPerTransfer(_Base): the same for writes, and for both |
// The queue lengths are measured against Timestamp_Sys100NS, the averages against
// Frequency_PerfTime, the percentages against their bases. The 32-bit counters wrap as on
// Windows; a wrap costs one sample.
// "_Total": sums, except the four percentages, which are averaged over the disks so that they
// stay the share of time of one disk.
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
  PercentDiskTime = PerfBaseCount, PercentDiskTimeBase, PercentDiskReadTime, PercentDiskReadTimeBase,
  PercentDiskWriteTime, PercentDiskWriteTimeBase, PercentIdleTime, PercentIdleTimeBase, AvgDiskQueueLength,
  AvgDiskReadQueueLength, AvgDiskWriteQueueLength, CurrentDiskQueueLength, DiskReadBytesPersec,
  DiskWriteBytesPersec, DiskBytesPersec, DiskReadsPersec, DiskWritesPersec, DiskTransfersPersec, AvgDisksecPerRead,
  AvgDisksecPerReadBase, AvgDisksecPerWrite, AvgDisksecPerWriteBase, AvgDisksecPerTransfer, AvgDisksecPerTransferBase,
  Count
};

constexpr std::uint64_t PerMillisecond = 10'000; // 100 ns units in a millisecond
constexpr std::uint64_t SectorBytes = 512;

// Milliseconds in ticks of the performance frequency, cut to the 32 bits of the Windows counter.
std::uint32_t MillisecondsToTicks(std::uint64_t milliseconds, std::uint64_t frequency)
{
  return static_cast<std::uint32_t>(milliseconds * frequency / 1000);
}

void SetDisk(Instance& disk, const DiskStat& stat, const PerfStamp& stamp, std::uint64_t divisor)
{
  const auto busy = stat.msIo * PerMillisecond;
  const auto now = stamp.boot100ns;
  Put(disk, PercentDiskTime, busy / divisor);
  Put(disk, PercentDiskTimeBase, now);
  Put(disk, PercentDiskReadTime, stat.msReading * PerMillisecond / divisor);
  Put(disk, PercentDiskReadTimeBase, now);
  Put(disk, PercentDiskWriteTime, stat.msWriting * PerMillisecond / divisor);
  Put(disk, PercentDiskWriteTimeBase, now);
  Put(disk, PercentIdleTime, (now * divisor > busy ? now * divisor - busy : 0) / divisor);
  Put(disk, PercentIdleTimeBase, now);
  Put(disk, AvgDiskQueueLength, stat.msWeighted * PerMillisecond);
  Put(disk, AvgDiskReadQueueLength, stat.msReading * PerMillisecond);
  Put(disk, AvgDiskWriteQueueLength, stat.msWriting * PerMillisecond);
  Put(disk, CurrentDiskQueueLength, static_cast<std::uint32_t>(stat.inFlight));
  Put(disk, DiskReadBytesPersec, stat.sectorsRead * SectorBytes);
  Put(disk, DiskWriteBytesPersec, stat.sectorsWritten * SectorBytes);
  Put(disk, DiskBytesPersec, (stat.sectorsRead + stat.sectorsWritten) * SectorBytes);
  Put(disk, DiskReadsPersec, static_cast<std::uint32_t>(stat.reads));
  Put(disk, DiskWritesPersec, static_cast<std::uint32_t>(stat.writes));
  Put(disk, DiskTransfersPersec, static_cast<std::uint32_t>(stat.reads + stat.writes));
  Put(disk, AvgDisksecPerRead, MillisecondsToTicks(stat.msReading, stamp.frequency));
  Put(disk, AvgDisksecPerReadBase, static_cast<std::uint32_t>(stat.reads));
  Put(disk, AvgDisksecPerWrite, MillisecondsToTicks(stat.msWriting, stamp.frequency));
  Put(disk, AvgDisksecPerWriteBase, static_cast<std::uint32_t>(stat.writes));
  Put(disk, AvgDisksecPerTransfer, MillisecondsToTicks(stat.msReading + stat.msWriting, stamp.frequency));
  Put(disk, AvgDisksecPerTransferBase, static_cast<std::uint32_t>(stat.reads + stat.writes));
}
} // namespace

bool IsPhysicalDisk(std::string_view sysBlockLinkTarget)
{
  return !sysBlockLinkTarget.empty() && sysBlockLinkTarget.find("/virtual/") == std::string_view::npos;
}

std::shared_ptr<const ClassDecl> PhysicalDiskPerfClass()
{
  using namespace counter;
  static const auto decl = MakePerfClass(L"Win32_PerfRawData_PerfDisk_PhysicalDisk", Count, PerfInstances::Named, {
      {L"PercentDiskTime", Type::UInt64, Precision100ns},
      {L"PercentDiskTime_Base", Type::UInt64, PrecisionTimestamp},
      {L"PercentDiskReadTime", Type::UInt64, Precision100ns},
      {L"PercentDiskReadTime_Base", Type::UInt64, PrecisionTimestamp},
      {L"PercentDiskWriteTime", Type::UInt64, Precision100ns},
      {L"PercentDiskWriteTime_Base", Type::UInt64, PrecisionTimestamp},
      {L"PercentIdleTime", Type::UInt64, Precision100ns},
      {L"PercentIdleTime_Base", Type::UInt64, PrecisionTimestamp},
      {L"AvgDiskQueueLength", Type::UInt64, QueueLen100ns},
      {L"AvgDiskReadQueueLength", Type::UInt64, QueueLen100ns},
      {L"AvgDiskWriteQueueLength", Type::UInt64, QueueLen100ns},
      {L"CurrentDiskQueueLength", Type::UInt32, RawCount},
      {L"DiskReadBytesPersec", Type::UInt64, BulkCount},
      {L"DiskWriteBytesPersec", Type::UInt64, BulkCount},
      {L"DiskBytesPersec", Type::UInt64, BulkCount},
      {L"DiskReadsPersec", Type::UInt32, Counter},
      {L"DiskWritesPersec", Type::UInt32, Counter},
      {L"DiskTransfersPersec", Type::UInt32, Counter},
      {L"AvgDisksecPerRead", Type::UInt32, AverageTimer},
      {L"AvgDisksecPerRead_Base", Type::UInt32, AverageBase},
      {L"AvgDisksecPerWrite", Type::UInt32, AverageTimer},
      {L"AvgDisksecPerWrite_Base", Type::UInt32, AverageBase},
      {L"AvgDisksecPerTransfer", Type::UInt32, AverageTimer},
      {L"AvgDisksecPerTransfer_Base", Type::UInt32, AverageBase},
  });
  return decl;
}

void BuildPhysicalDiskPerf(const std::vector<DiskStat>& disks, const std::set<std::string, std::less<>>& physicalDisks,
                           const PerfStamp& stamp, std::vector<Instance>& out)
{
  const auto decl = PhysicalDiskPerfClass();
  DiskStat total;
  std::uint64_t count = 0;
  for (const auto& stat : disks)
  {
    if (physicalDisks.find(stat.name) == physicalDisks.end())
      continue;
    auto& disk = out.emplace_back(decl);
    SetPerfBase(disk, Widen(stat.name), stamp);
    SetDisk(disk, stat, stamp, 1);
    ++count;
    total.reads += stat.reads;
    total.sectorsRead += stat.sectorsRead;
    total.msReading += stat.msReading;
    total.writes += stat.writes;
    total.sectorsWritten += stat.sectorsWritten;
    total.msWriting += stat.msWriting;
    total.inFlight += stat.inFlight;
    total.msIo += stat.msIo;
    total.msWeighted += stat.msWeighted;
  }
  auto& all = out.emplace_back(decl);
  SetPerfBase(all, std::wstring(L"_Total"), stamp);
  SetDisk(all, total, stamp, count == 0 ? 1 : count);
}
} // namespace cim::machine
