// Win32_PerfRawData_Tcpip_NetworkInterface from /proc/net/dev and /sys/class/net/<if>/speed.
// One instance per interface, named as the kernel names it; the loopback is left out, as
// Windows leaves it out of this object, and there is no "_Total", as on Windows.
//
// | Counter                          | MI type | CounterType                        | Linux source          |
// |----------------------------------|---------|------------------------------------|-----------------------|
// | BytesReceivedPersec              | uint64  | PERF_COUNTER_BULK_COUNT 0x10410500 | rx bytes              |
// | BytesSentPersec                  | uint64  | PERF_COUNTER_BULK_COUNT            | tx bytes              |
// | BytesTotalPersec                 | uint64  | PERF_COUNTER_BULK_COUNT            | rx + tx bytes         |
// | PacketsPersec                    | uint32  | PERF_COUNTER_COUNTER 0x10410400    | rx + tx packets       |
// | PacketsReceivedPersec            | uint32  | PERF_COUNTER_COUNTER               | rx packets            |
// | PacketsSentPersec                | uint32  | PERF_COUNTER_COUNTER               | tx packets            |
// | PacketsReceivedUnicastPersec     | uint32  | PERF_COUNTER_COUNTER               | rx packets − multicast|
// | PacketsReceivedNonUnicastPersec  | uint32  | PERF_COUNTER_COUNTER               | rx multicast          |
// | PacketsReceivedDiscarded         | uint32  | PERF_COUNTER_RAWCOUNT 0x00010000   | rx drop               |
// | PacketsReceivedErrors            | uint32  | PERF_COUNTER_RAWCOUNT              | rx errs               |
// | PacketsOutboundDiscarded         | uint32  | PERF_COUNTER_RAWCOUNT              | tx drop               |
// | PacketsOutboundErrors            | uint32  | PERF_COUNTER_RAWCOUNT              | tx errs               |
// | CurrentBandwidth                 | uint64  | PERF_COUNTER_LARGE_RAWCOUNT 0x00010100 | speed (Mbit/s) × 10^6; null when the link reports none |
// | OutputQueueLength                | uint32  | PERF_COUNTER_RAWCOUNT              | null: Linux does not count it |
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
  BytesReceivedPersec = PerfBaseCount, BytesSentPersec, BytesTotalPersec, PacketsPersec, PacketsReceivedPersec,
  PacketsSentPersec, PacketsReceivedUnicastPersec, PacketsReceivedNonUnicastPersec, PacketsReceivedDiscarded,
  PacketsReceivedErrors, PacketsOutboundDiscarded, PacketsOutboundErrors, CurrentBandwidth, OutputQueueLength,
  Count
};

// The Windows counters are 32-bit and wrap; a wrap costs one sample.
std::uint32_t Low32(std::uint64_t value) { return static_cast<std::uint32_t>(value); }
} // namespace

std::shared_ptr<const ClassDecl> NetworkInterfacePerfClass()
{
  using namespace counter;
  static const auto decl = MakePerfClass(L"Win32_PerfRawData_Tcpip_NetworkInterface", Count, PerfInstances::Named, {
      {L"BytesReceivedPersec", Type::UInt64, BulkCount},
      {L"BytesSentPersec", Type::UInt64, BulkCount},
      {L"BytesTotalPersec", Type::UInt64, BulkCount},
      {L"PacketsPersec", Type::UInt32, Counter},
      {L"PacketsReceivedPersec", Type::UInt32, Counter},
      {L"PacketsSentPersec", Type::UInt32, Counter},
      {L"PacketsReceivedUnicastPersec", Type::UInt32, Counter},
      {L"PacketsReceivedNonUnicastPersec", Type::UInt32, Counter},
      {L"PacketsReceivedDiscarded", Type::UInt32, RawCount},
      {L"PacketsReceivedErrors", Type::UInt32, RawCount},
      {L"PacketsOutboundDiscarded", Type::UInt32, RawCount},
      {L"PacketsOutboundErrors", Type::UInt32, RawCount},
      {L"CurrentBandwidth", Type::UInt64, LargeRawCount},
      {L"OutputQueueLength", Type::UInt32, RawCount},
  });
  return decl;
}

void BuildNetworkInterfacePerf(const std::vector<NetDevStat>& interfaces,
                               const std::map<std::string, std::int64_t, std::less<>>& speeds,
                               const PerfStamp& stamp, std::vector<Instance>& out)
{
  const auto decl = NetworkInterfacePerfClass();
  for (const auto& dev : interfaces)
  {
    if (dev.name == "lo")
      continue;
    auto& nic = out.emplace_back(decl);
    SetPerfBase(nic, Widen(dev.name), stamp);
    Put(nic, BytesReceivedPersec, dev.rxBytes);
    Put(nic, BytesSentPersec, dev.txBytes);
    Put(nic, BytesTotalPersec, dev.rxBytes + dev.txBytes);
    Put(nic, PacketsPersec, Low32(dev.rxPackets + dev.txPackets));
    Put(nic, PacketsReceivedPersec, Low32(dev.rxPackets));
    Put(nic, PacketsSentPersec, Low32(dev.txPackets));
    Put(nic, PacketsReceivedUnicastPersec, Low32(dev.rxPackets >= dev.rxMulticast ? dev.rxPackets - dev.rxMulticast : 0));
    Put(nic, PacketsReceivedNonUnicastPersec, Low32(dev.rxMulticast));
    Put(nic, PacketsReceivedDiscarded, Low32(dev.rxDropped));
    Put(nic, PacketsReceivedErrors, Low32(dev.rxErrors));
    Put(nic, PacketsOutboundDiscarded, Low32(dev.txDropped));
    Put(nic, PacketsOutboundErrors, Low32(dev.txErrors));
    // A link that is down or virtual reports -1 or nothing: its bandwidth is unknown.
    if (const auto speed = speeds.find(dev.name); speed != speeds.end() && speed->second > 0)
      Put(nic, CurrentBandwidth, static_cast<std::uint64_t>(speed->second) * 1'000'000);
  }
}
} // namespace cim::machine
