// The class builders on facts parsed from captured texts: the mapping to Windows property
// names, MI types, units and counter types.
#include "Cim/Machine/Classes.h"
#include "Cim/Machine/CounterTypes.h"
#include "GoldenData.h"

#include <gtest/gtest.h>

using namespace cim::machine;

namespace
{
const cim::Element& Get(const cim::Instance& instance, std::wstring_view name)
{
  const auto index = instance.decl->Find(name);
  if (index == cim::ClassDecl::npos)
    throw std::out_of_range("no such property");
  return instance.elements[index];
}

template <typename T>
T Value(const cim::Instance& instance, std::wstring_view name)
{
  const auto& element = Get(instance, name);
  if (!element.value)
    throw std::runtime_error("null value");
  return std::get<T>(*element.value);
}

bool IsNull(const cim::Instance& instance, std::wstring_view name) { return !Get(instance, name).value.has_value(); }

std::optional<std::uint32_t> CounterTypeOf(const cim::ClassDecl& decl, std::wstring_view name)
{
  for (const auto& qualifier : decl.properties.at(decl.Find(name)).qualifiers)
  {
    if (qualifier.name == L"CounterType")
      return std::get<std::uint32_t>(qualifier.value);
  }
  return std::nullopt;
}

// Every value has the MI type its property declares: the builders' indices match the tables.
void ExpectTypesMatch(const std::vector<cim::Instance>& instances)
{
  for (const auto& instance : instances)
  {
    ASSERT_EQ(instance.elements.size(), instance.decl->properties.size());
    for (std::size_t i = 0; i < instance.elements.size(); ++i)
    {
      if (instance.elements[i].value)
      {
        EXPECT_EQ(cim::TypeOf(*instance.elements[i].value), instance.decl->properties[i].type)
            << std::string(instance.decl->properties[i].name.begin(), instance.decl->properties[i].name.end());
      }
    }
  }
}

// A sample 1393.2418499 s after boot on a host whose performance counter runs at 3,579,545 Hz.
const PerfStamp Stamp{4'987'171'897, 134'000'000'000'000'000, 13'932'418'499, 3'579'545};
constexpr std::uint64_t BootFileTime = 134'000'000'000'000'000 - 13'932'418'499;

bool IsKey(const cim::ClassDecl& decl, std::wstring_view property)
{
  const auto index = decl.Find(property);
  if (index == cim::ClassDecl::npos)
    return false;
  for (const auto& qualifier : decl.properties[index].qualifiers)
    if (qualifier.name == L"Key")
      return std::get<bool>(qualifier.value);
  return false;
}

} // namespace

TEST(MachineClasses, KeysAndBasePropertiesAsWindowsDeclaresThem)
{
  // Classes of named instances are keyed by Name; the singletons System and Memory have no key.
  EXPECT_TRUE(IsKey(*ProcessorPerfClass(), L"Name"));
  EXPECT_TRUE(IsKey(*ProcessPerfClass(), L"Name"));
  EXPECT_TRUE(IsKey(*PhysicalDiskPerfClass(), L"Name"));
  EXPECT_TRUE(IsKey(*NetworkInterfacePerfClass(), L"Name"));
  EXPECT_FALSE(IsKey(*SystemPerfClass(), L"Name"));
  EXPECT_FALSE(IsKey(*MemoryPerfClass(), L"Name"));
  EXPECT_TRUE(IsKey(*ProcessClass(), L"Handle"));
  EXPECT_TRUE(IsKey(*LogicalDiskClass(), L"DeviceID"));
  EXPECT_TRUE(IsKey(*OperatingSystemClass(), L"Name"));
  EXPECT_TRUE(IsKey(*ComputerSystemClass(), L"Name"));
  EXPECT_FALSE(IsKey(*ProcessClass(), L"Name"));

  // Each base follows its counter, named <counter>_Base, with the base type of the counter's type.
  const auto memory = MemoryPerfClass();
  const auto fraction = memory->Find(L"PercentCommittedBytesInUse");
  ASSERT_NE(fraction, cim::ClassDecl::npos);
  EXPECT_EQ(memory->properties.at(fraction + 1).name, L"PercentCommittedBytesInUse_Base");
  EXPECT_EQ(CounterTypeOf(*memory, L"PercentCommittedBytesInUse"), 0x20020400u);      // PERF_RAW_FRACTION
  EXPECT_EQ(CounterTypeOf(*memory, L"PercentCommittedBytesInUse_Base"), 0x40030403u); // PERF_RAW_BASE
  const auto disk = PhysicalDiskPerfClass();
  for (const auto* counter : {L"AvgDisksecPerRead", L"AvgDisksecPerWrite", L"AvgDisksecPerTransfer"})
  {
    const auto index = disk->Find(counter);
    ASSERT_NE(index, cim::ClassDecl::npos);
    EXPECT_EQ(disk->properties.at(index + 1).name, std::wstring(counter) + L"_Base");
    EXPECT_EQ(disk->properties.at(index).type, cim::Type::UInt32);
    EXPECT_EQ(CounterTypeOf(*disk, counter), 0x30020400u);                               // PERF_AVERAGE_TIMER
    EXPECT_EQ(CounterTypeOf(*disk, std::wstring(counter) + L"_Base"), 0x40030402u);      // PERF_AVERAGE_BASE
  }
  for (const auto* counter : {L"PercentDiskTime", L"PercentDiskReadTime", L"PercentDiskWriteTime", L"PercentIdleTime"})
  {
    const auto index = disk->Find(counter);
    ASSERT_NE(index, cim::ClassDecl::npos);
    EXPECT_EQ(disk->properties.at(index + 1).name, std::wstring(counter) + L"_Base");
    EXPECT_EQ(CounterTypeOf(*disk, std::wstring(counter) + L"_Base"), 0x40030500u);      // PERF_PRECISION_TIMESTAMP
  }
  EXPECT_EQ(CounterTypeOf(*disk, L"AvgDiskQueueLength"), 0x00550500u); // PERF_COUNTER_100NS_QUEUELEN_TYPE
}

TEST(MachineClasses, EveryClassDeclaresItsTableAndRawClassesCarryTheirBase)
{
  const std::shared_ptr<const cim::ClassDecl> all[] = {
      OperatingSystemClass(), ComputerSystemClass(), ProcessClass(), LogicalDiskClass(), ProcessorPerfClass(),
      MemoryPerfClass(), SystemPerfClass(), PhysicalDiskPerfClass(), NetworkInterfacePerfClass(), ProcessPerfClass()};
  for (const auto& decl : all)
    ASSERT_NE(decl, nullptr);
  for (std::size_t i = 4; i < std::size(all); ++i)
  {
    for (const auto* name : {L"Name", L"Frequency_PerfTime", L"Timestamp_PerfTime", L"Frequency_Sys100NS",
                             L"Timestamp_Sys100NS", L"Frequency_Object", L"Timestamp_Object"})
      EXPECT_NE(all[i]->Find(name), cim::ClassDecl::npos);
    // Every property after the inherited nine is a counter with its Windows counter type.
    for (std::size_t p = 9; p < all[i]->properties.size(); ++p)
      EXPECT_TRUE(CounterTypeOf(*all[i], all[i]->properties[p].name).has_value());
    EXPECT_FALSE(CounterTypeOf(*all[i], L"Timestamp_PerfTime").has_value());
  }
}

TEST(MachineClasses, CounterTypesOfTheWindowsCounterparts)
{
  EXPECT_EQ(CounterTypeOf(*ProcessorPerfClass(), L"PercentProcessorTime"), 0x21510500u);
  EXPECT_EQ(CounterTypeOf(*ProcessorPerfClass(), L"PercentUserTime"), 0x20510500u);
  EXPECT_EQ(CounterTypeOf(*ProcessorPerfClass(), L"PercentPrivilegedTime"), 0x20510500u);
  EXPECT_EQ(CounterTypeOf(*ProcessorPerfClass(), L"InterruptsPersec"), 0x10410400u);
  EXPECT_EQ(CounterTypeOf(*MemoryPerfClass(), L"AvailableBytes"), 0x00010100u);
  EXPECT_EQ(CounterTypeOf(*MemoryPerfClass(), L"PagesPersec"), 0x10410400u);
  EXPECT_EQ(CounterTypeOf(*SystemPerfClass(), L"SystemUpTime"), 0x30240500u);
  EXPECT_EQ(CounterTypeOf(*SystemPerfClass(), L"Processes"), 0x00010000u);
  EXPECT_EQ(CounterTypeOf(*PhysicalDiskPerfClass(), L"DiskReadBytesPersec"), 0x10410500u);
  EXPECT_EQ(CounterTypeOf(*PhysicalDiskPerfClass(), L"CurrentDiskQueueLength"), 0x00010000u);
  EXPECT_EQ(CounterTypeOf(*PhysicalDiskPerfClass(), L"AvgDiskQueueLength"), 0x00550500u);
  EXPECT_EQ(CounterTypeOf(*PhysicalDiskPerfClass(), L"PercentDiskTime"), 0x20570500u);
  EXPECT_EQ(CounterTypeOf(*NetworkInterfacePerfClass(), L"BytesReceivedPersec"), 0x10410500u);
  EXPECT_EQ(CounterTypeOf(*NetworkInterfacePerfClass(), L"PacketsReceivedPersec"), 0x10410400u);
  EXPECT_EQ(CounterTypeOf(*ProcessPerfClass(), L"PercentProcessorTime"), 0x20510500u);
  EXPECT_EQ(CounterTypeOf(*ProcessPerfClass(), L"ElapsedTime"), 0x30240500u);
  EXPECT_EQ(CounterTypeOf(*ProcessPerfClass(), L"IDProcess"), 0x00010000u);
}

TEST(MachineClasses, OperatingSystemMapping)
{
  OperatingSystemFacts facts;
  facts.uname = {"Linux", "vm", "6.18.44-fc-v669", "#1 SMP PREEMPT_DYNAMIC @0", "x86_64"};
  facts.osRelease = ParseOsRelease(GoldenText("os-release"));
  facts.meminfo = ParseMeminfo(GoldenText("meminfo"));
  facts.bootTime = ParseProcStat(GoldenText("stat")).bootTime;
  facts.processCount = 106;
  facts.now = {1795318222, 250, 120};
  std::vector<cim::Instance> out;
  BuildOperatingSystem(facts, out);
  ASSERT_EQ(out.size(), 1u);
  ExpectTypesMatch(out);
  const auto& os = out[0];
  EXPECT_EQ(Value<std::wstring>(os, L"Caption"), L"Debian GNU/Linux 12 (bookworm)");
  EXPECT_EQ(Value<std::wstring>(os, L"Version"), L"6.18.44-fc-v669");
  EXPECT_EQ(Value<std::wstring>(os, L"BuildNumber"), L"#1 SMP PREEMPT_DYNAMIC @0");
  EXPECT_EQ(Value<std::wstring>(os, L"OSArchitecture"), L"64-bit");
  EXPECT_EQ(Value<std::wstring>(os, L"CSName"), L"vm");
  EXPECT_EQ(Value<std::uint16_t>(os, L"OSType"), 36);
  EXPECT_EQ(Value<std::uint64_t>(os, L"TotalVisibleMemorySize"), 24684084u);
  EXPECT_EQ(Value<std::uint64_t>(os, L"FreePhysicalMemory"), 23316316u);
  EXPECT_EQ(Value<std::uint64_t>(os, L"TotalVirtualMemorySize"), 24684084u);
  EXPECT_EQ(Value<std::uint32_t>(os, L"NumberOfProcesses"), 106u);
  EXPECT_EQ(Value<std::int16_t>(os, L"CurrentTimeZone"), 120);
  // btime 1795316832 is 2026-11-22 03:07:12 UTC, shown at +02:00.
  const auto boot = Value<cim::DateTime>(os, L"LastBootUpTime");
  EXPECT_EQ(boot.year, 2026u);
  EXPECT_EQ(boot.month, 11u);
  EXPECT_EQ(boot.day, 22u);
  EXPECT_EQ(boot.hour, 5u);
  EXPECT_EQ(boot.minute, 7u);
  EXPECT_EQ(boot.second, 12u);
  EXPECT_EQ(boot.utc, 120);
  EXPECT_EQ(Value<cim::DateTime>(os, L"LocalDateTime").microseconds, 250u);
}

TEST(MachineClasses, OperatingSystemWithoutOsReleaseOrSwapLines)
{
  OperatingSystemFacts facts;
  facts.uname = {"Linux", "box", "5.10", "#1", "riscv128"};
  facts.meminfo = ParseMeminfo("MemTotal: 1000 kB\nMemFree: 400 kB\n");
  std::vector<cim::Instance> out;
  BuildOperatingSystem(facts, out);
  const auto& os = out.at(0);
  EXPECT_EQ(Value<std::wstring>(os, L"Caption"), L"Linux");
  EXPECT_EQ(Value<std::uint64_t>(os, L"FreePhysicalMemory"), 400u);
  EXPECT_TRUE(IsNull(os, L"OSArchitecture"));
  EXPECT_TRUE(IsNull(os, L"TotalVirtualMemorySize"));
  EXPECT_TRUE(IsNull(os, L"LastBootUpTime"));
  EXPECT_TRUE(IsNull(os, L"Manufacturer"));
}

TEST(MachineClasses, ComputerSystemMapping)
{
  ComputerSystemFacts facts;
  facts.uname = {"Linux", "web01.corp.example", "6.1", "#1", "x86_64"};
  facts.nisDomain = "(none)";
  facts.cpu = ParseCpuinfo(GoldenText("cpuinfo"));
  facts.meminfo = ParseMeminfo(GoldenText("meminfo"));
  facts.vendor = "QEMU";
  std::vector<cim::Instance> out;
  BuildComputerSystem(facts, out);
  ExpectTypesMatch(out);
  const auto& cs = out.at(0);
  EXPECT_EQ(Value<std::wstring>(cs, L"Name"), L"web01");
  EXPECT_EQ(Value<std::wstring>(cs, L"Domain"), L"corp.example");
  EXPECT_TRUE(Value<bool>(cs, L"PartOfDomain"));
  EXPECT_TRUE(IsNull(cs, L"Workgroup"));
  EXPECT_EQ(Value<std::wstring>(cs, L"Manufacturer"), L"QEMU");
  EXPECT_TRUE(IsNull(cs, L"Model"));
  EXPECT_EQ(Value<std::uint32_t>(cs, L"NumberOfProcessors"), 1u);
  EXPECT_EQ(Value<std::uint32_t>(cs, L"NumberOfLogicalProcessors"), 2u);
  EXPECT_EQ(Value<std::uint64_t>(cs, L"TotalPhysicalMemory"), 24684084ull * 1024);
  EXPECT_EQ(Value<std::wstring>(cs, L"SystemType"), L"x64-based PC");

  facts.uname.nodename = "vm";
  out.clear();
  BuildComputerSystem(facts, out);
  EXPECT_EQ(Value<std::wstring>(out.at(0), L"Domain"), L"WORKGROUP");
  EXPECT_FALSE(Value<bool>(out.at(0), L"PartOfDomain"));
}

TEST(MachineClasses, ProcessMapping)
{
  ProcessFacts facts;
  facts.stat = *ParseProcessStat(GoldenText("pid_stat_odd_name"));
  facts.status = ParseProcessStatus(GoldenText("pid_status"));
  facts.cmdline = ParseCmdline(GoldenText("pid_cmdline"));
  facts.executablePath = "/usr/bin/python3.11";
  ProcessContext context;
  context.bootTime = 1795316832;
  context.ticksPerSecond = 100;
  context.pageSize = 4096;
  context.hostName = L"vm";
  std::vector<cim::Instance> out;
  AppendProcess(facts, context, out);
  ExpectTypesMatch(out);
  const auto& process = out.at(0);
  EXPECT_EQ(Value<std::wstring>(process, L"Name"), L"my (odd) name");
  EXPECT_EQ(Value<std::uint32_t>(process, L"ProcessId"), 4242u);
  EXPECT_EQ(Value<std::wstring>(process, L"Handle"), L"4242");
  EXPECT_EQ(Value<std::uint32_t>(process, L"ParentProcessId"), 1u);
  EXPECT_EQ(Value<std::wstring>(process, L"CommandLine"), L"/usr/bin/python3 -c print(\"hi there\")");
  EXPECT_EQ(Value<std::wstring>(process, L"ExecutablePath"), L"/usr/bin/python3.11");
  EXPECT_EQ(Value<std::uint64_t>(process, L"UserModeTime"), 300u * 100'000);
  EXPECT_EQ(Value<std::uint64_t>(process, L"KernelModeTime"), 120u * 100'000);
  EXPECT_EQ(Value<std::uint32_t>(process, L"ThreadCount"), 3u);
  EXPECT_EQ(Value<std::uint64_t>(process, L"WorkingSetSize"), 2560u * 4096);
  EXPECT_EQ(Value<std::uint32_t>(process, L"PeakWorkingSetSize"), 1780u);
  EXPECT_EQ(Value<std::uint64_t>(process, L"VirtualSize"), 104857600u);
  EXPECT_EQ(Value<std::uint32_t>(process, L"PageFaults"), 1525u);
  EXPECT_EQ(Value<std::uint32_t>(process, L"PageFileUsage"), 492u);
  EXPECT_EQ(Value<std::uint32_t>(process, L"Priority"), 8u);
  // Started 123.45 s after boot.
  const auto created = Value<cim::DateTime>(process, L"CreationDate");
  EXPECT_EQ(created.minute, 9u);
  EXPECT_EQ(created.second, 15u);
  EXPECT_EQ(created.microseconds, 450000u);

  // A kernel thread: no command line, no executable, no memory lines.
  ProcessFacts kernel;
  kernel.stat = *ParseProcessStat(GoldenText("pid_stat"));
  out.clear();
  AppendProcess(kernel, context, out);
  EXPECT_TRUE(IsNull(out.at(0), L"CommandLine"));
  EXPECT_TRUE(IsNull(out.at(0), L"ExecutablePath"));
  EXPECT_TRUE(IsNull(out.at(0), L"PeakWorkingSetSize"));
  EXPECT_EQ(Value<std::uint32_t>(out.at(0), L"Priority"), 10u);
}

TEST(MachineClasses, WindowsPriorityClasses)
{
  ProcessStat stat;
  stat.priority = 20;
  EXPECT_EQ(WindowsPriority(stat), 8u);
  stat.nice = 19;
  EXPECT_EQ(WindowsPriority(stat), 4u);
  stat.nice = 5;
  EXPECT_EQ(WindowsPriority(stat), 6u);
  stat.nice = -5;
  EXPECT_EQ(WindowsPriority(stat), 10u);
  stat.nice = -20;
  EXPECT_EQ(WindowsPriority(stat), 13u);
  stat.priority = -50;
  EXPECT_EQ(WindowsPriority(stat), 24u);
}

TEST(MachineClasses, LogicalDiskMapping)
{
  std::vector<MountFacts> mounts;
  for (auto& mount : ParseMounts(GoldenText("mounts")))
  {
    MountFacts facts;
    facts.mount = mount;
    facts.stats = FileSystemStats{1000, 250, 4096, 255, false};
    if (mount.mountPoint == "/")
      facts.label = "root disk";
    mounts.push_back(std::move(facts));
  }
  std::vector<cim::Instance> out;
  BuildLogicalDisks(mounts, L"vm", out);
  ExpectTypesMatch(out);
  // sysfs, proc and tmpfs are left out; the first /data is hidden by the second.
  ASSERT_EQ(out.size(), 6u);
  std::vector<std::wstring> ids;
  ids.reserve(out.size());
  for (const auto& disk : out)
    ids.push_back(Value<std::wstring>(disk, L"DeviceID"));
  EXPECT_EQ(ids, (std::vector<std::wstring>{L"/", L"/boot/efi", L"/mnt/My Data", L"/srv/nfs", L"/media/cdrom", L"/data"}));
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"Size"), 4096000u);
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"FreeSpace"), 1024000u);
  EXPECT_EQ(Value<std::uint32_t>(out[0], L"DriveType"), 3u);
  EXPECT_EQ(Value<std::wstring>(out[0], L"VolumeName"), L"root disk");
  EXPECT_EQ(Value<std::uint16_t>(out[0], L"Access"), 3);
  EXPECT_EQ(Value<std::uint16_t>(out[2], L"Access"), 1);
  EXPECT_EQ(Value<std::uint32_t>(out[3], L"DriveType"), 4u);
  EXPECT_EQ(Value<std::wstring>(out[3], L"ProviderName"), L"server:/export");
  EXPECT_EQ(Value<std::uint32_t>(out[4], L"DriveType"), 5u);
  EXPECT_EQ(Value<std::wstring>(out[5], L"FileSystem"), L"xfs");

  // statvfs failed: the disk is still reported, its sizes null.
  mounts.resize(3);
  mounts[2].stats.reset();
  out.clear();
  BuildLogicalDisks(mounts, L"vm", out);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_TRUE(IsNull(out[0], L"Size"));
  // A file system of no blocks is a pseudo file system.
  mounts[2].stats = FileSystemStats{};
  out.clear();
  BuildLogicalDisks(mounts, L"vm", out);
  EXPECT_TRUE(out.empty());
}

TEST(MachineClasses, ProcessorTimesIn100nsAndTotalAveraged)
{
  const auto stat = ParseProcStat(GoldenText("stat"));
  const auto interrupts = ParseInterrupts(GoldenText("interrupts"));
  std::vector<cim::Instance> out;
  BuildProcessorPerf(stat, interrupts, 100, Stamp, out);
  ExpectTypesMatch(out);
  ASSERT_EQ(out.size(), 3u);
  EXPECT_EQ(Value<std::wstring>(out[0], L"Name"), L"0");
  EXPECT_EQ(Value<std::wstring>(out[2], L"Name"), L"_Total");
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"PercentProcessorTime"), (81243u + 338) * 100'000ull);
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"PercentUserTime"), 50850u * 100'000ull);
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"PercentPrivilegedTime"), (6941u + 13) * 100'000ull);
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"PercentDPCTime"), 13u * 100'000ull);
  EXPECT_EQ(Value<std::uint32_t>(out[1], L"InterruptsPersec"), 310560u);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"PercentProcessorTime"), 155199u * 100'000ull / 2);
  EXPECT_EQ(Value<std::uint32_t>(out[2], L"InterruptsPersec"), 258357u + 310560u);
  // The three time bases: PerfTime at the host's frequency, Sys100NS and Object as FILETIMEs.
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"Frequency_PerfTime"), 3'579'545u);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"Timestamp_PerfTime"), Stamp.perfTime);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"Frequency_Sys100NS"), 10'000'000u);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"Timestamp_Sys100NS"), Stamp.sys100ns);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"Frequency_Object"), 10'000'000u);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"Timestamp_Object"), Stamp.sys100ns);

  // Without /proc/interrupts the total falls back to the "intr" line; CPUs have none.
  out.clear();
  BuildProcessorPerf(stat, {}, 100, Stamp, out);
  EXPECT_TRUE(IsNull(out[0], L"InterruptsPersec"));
  EXPECT_EQ(Value<std::uint32_t>(out[2], L"InterruptsPersec"), 559048u);
}

TEST(MachineClasses, MemoryAndSystemMapping)
{
  std::vector<cim::Instance> out;
  BuildMemoryPerf(ParseMeminfo(GoldenText("meminfo")), ParseVmstat(GoldenText("vmstat")), Stamp, out);
  SystemPerfFacts system;
  system.stat = ParseProcStat(GoldenText("stat"));
  system.loadavg = ParseLoadavg(GoldenText("loadavg"));
  system.processCount = 107;
  system.onlineProcessors = 2;
  BuildSystemPerf(system, Stamp, out);
  ExpectTypesMatch(out);
  const auto& memory = out.at(0);
  EXPECT_TRUE(IsNull(memory, L"Name"));
  EXPECT_EQ(Value<std::uint64_t>(memory, L"AvailableBytes"), 23316316ull * 1024);
  EXPECT_EQ(Value<std::uint64_t>(memory, L"AvailableMBytes"), 23316316ull / 1024);
  EXPECT_EQ(Value<std::uint64_t>(memory, L"CommittedBytes"), 1355776ull * 1024);
  EXPECT_EQ(Value<std::uint64_t>(memory, L"ModifiedPageListBytes"), (67240ull + 12) * 1024);
  EXPECT_EQ(Value<std::uint32_t>(memory, L"PageFaultsPersec"), 27966725u);
  EXPECT_EQ(Value<std::uint32_t>(memory, L"PagesPersec"), 1850u);
  // PERF_RAW_FRACTION over its PERF_RAW_BASE: Committed_AS over CommitLimit, in kB.
  EXPECT_EQ(Value<std::uint32_t>(memory, L"PercentCommittedBytesInUse"), 1355776u);
  EXPECT_EQ(Value<std::uint32_t>(memory, L"PercentCommittedBytesInUse_Base"), *Lookup(ParseMeminfo(GoldenText("meminfo")), "CommitLimit"));
  const auto& sys = out.at(1);
  EXPECT_TRUE(IsNull(sys, L"Name"));
  EXPECT_EQ(Value<std::uint32_t>(sys, L"ContextSwitchesPersec"), 808660u);
  EXPECT_EQ(Value<std::uint32_t>(sys, L"Processes"), 107u);
  EXPECT_EQ(Value<std::uint32_t>(sys, L"Threads"), 109u);
  EXPECT_EQ(Value<std::uint32_t>(sys, L"ProcessorQueueLength"), 2u);
  // PERF_ELAPSED_TIME: the boot moment as a FILETIME, measured against Timestamp_Object.
  EXPECT_EQ(Value<std::uint64_t>(sys, L"SystemUpTime"), BootFileTime);
  EXPECT_EQ(Value<std::uint64_t>(sys, L"Timestamp_Object") - Value<std::uint64_t>(sys, L"SystemUpTime"), Stamp.boot100ns);

  // An old kernel without MemAvailable: the counters are null, not zero.
  out.clear();
  BuildMemoryPerf(ParseMeminfo("MemTotal: 10 kB\n"), {}, Stamp, out);
  EXPECT_TRUE(IsNull(out.at(0), L"AvailableBytes"));
  EXPECT_TRUE(IsNull(out.at(0), L"PagesPersec"));
}

TEST(MachineClasses, PhysicalDiskOnlyPhysicalDisksAndTotal)
{
  EXPECT_TRUE(IsPhysicalDisk("../devices/pci0000:00/0000:00:05.0/virtio2/block/vda"));
  EXPECT_FALSE(IsPhysicalDisk("../devices/virtual/block/loop0"));
  EXPECT_FALSE(IsPhysicalDisk(""));
  std::vector<cim::Instance> out;
  BuildPhysicalDiskPerf(ParseDiskstats(GoldenText("diskstats")), {"vda"}, Stamp, out);
  ExpectTypesMatch(out);
  ASSERT_EQ(out.size(), 2u);
  const auto& vda = out[0];
  EXPECT_EQ(Value<std::wstring>(vda, L"Name"), L"vda");
  EXPECT_EQ(Value<std::uint64_t>(vda, L"DiskReadBytesPersec"), 4102626ull * 512);
  EXPECT_EQ(Value<std::uint64_t>(vda, L"DiskBytesPersec"), (4102626ull + 7134784) * 512);
  EXPECT_EQ(Value<std::uint32_t>(vda, L"DiskTransfersPersec"), 43670u + 28554u);
  EXPECT_EQ(Value<std::uint64_t>(vda, L"PercentDiskTime"), 48000ull * 10'000);
  EXPECT_EQ(Value<std::uint64_t>(vda, L"PercentIdleTime"), Stamp.boot100ns - 48000ull * 10'000);
  EXPECT_EQ(Value<std::uint64_t>(vda, L"PercentIdleTime_Base"), Stamp.boot100ns);
  EXPECT_EQ(Value<std::uint64_t>(vda, L"PercentDiskTime_Base"), Stamp.boot100ns);
  // PERF_AVERAGE_TIMER in ticks of the host's frequency (32 bits), over the count of operations.
  EXPECT_EQ(Value<std::uint32_t>(vda, L"AvgDisksecPerRead"), static_cast<std::uint32_t>(110146ull * 3'579'545 / 1000));
  EXPECT_EQ(Value<std::uint32_t>(vda, L"AvgDisksecPerRead_Base"), 43670u);
  EXPECT_EQ(Value<std::uint32_t>(vda, L"AvgDisksecPerWrite"), static_cast<std::uint32_t>(138169ull * 3'579'545 / 1000));
  EXPECT_EQ(Value<std::uint32_t>(vda, L"AvgDisksecPerWrite_Base"), 28554u);
  EXPECT_EQ(Value<std::uint32_t>(vda, L"AvgDisksecPerTransfer_Base"), 43670u + 28554u);
  EXPECT_EQ(Value<std::uint64_t>(vda, L"AvgDiskQueueLength"), 256733ull * 10'000);
  EXPECT_EQ(Value<std::wstring>(out[1], L"Name"), L"_Total");
  EXPECT_EQ(Value<std::uint64_t>(out[1], L"DiskReadBytesPersec"), 4102626ull * 512);

  // Two disks: _Total sums rates and averages the percentages.
  const auto two = ParseDiskstats("8 0 sda 1 0 2 0 1 0 2 0 0 100 0\n8 16 sdb 1 0 2 0 1 0 2 0 0 300 0\n");
  out.clear();
  BuildPhysicalDiskPerf(two, {"sda", "sdb"}, PerfStamp{10'000'000, 0, 10'000'000}, out);
  ASSERT_EQ(out.size(), 3u);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"PercentDiskTime"), 200ull * 10'000);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"PercentIdleTime"), 10'000'000ull - 200ull * 10'000);
  EXPECT_EQ(Value<std::uint32_t>(out[2], L"DiskReadsPersec"), 2u);
}

TEST(MachineClasses, NetworkInterfacesWithoutLoopback)
{
  std::vector<cim::Instance> out;
  BuildNetworkInterfacePerf(ParseNetDev(GoldenText("net_dev")), {{"eth0", 10000}, {"ifb0", -1}}, Stamp, out);
  ExpectTypesMatch(out);
  ASSERT_EQ(out.size(), 3u);
  const auto& eth0 = out[2];
  EXPECT_EQ(Value<std::wstring>(eth0, L"Name"), L"eth0");
  EXPECT_EQ(Value<std::uint64_t>(eth0, L"BytesReceivedPersec"), 20302920u);
  EXPECT_EQ(Value<std::uint64_t>(eth0, L"BytesTotalPersec"), 20302920u + 32685u);
  EXPECT_EQ(Value<std::uint32_t>(eth0, L"PacketsPersec"), 535u + 382u);
  EXPECT_EQ(Value<std::uint64_t>(eth0, L"CurrentBandwidth"), 10'000'000'000ull);
  EXPECT_TRUE(IsNull(out[0], L"CurrentBandwidth"));
  EXPECT_TRUE(IsNull(eth0, L"OutputQueueLength"));
}

TEST(MachineClasses, ProcessPerfNamesIdleAndTotal)
{
  const auto first = *ParseProcessStat(GoldenText("pid_stat_odd_name"));
  auto second = first;
  second.pid = 4243;
  std::vector<cim::Instance> out;
  ProcessPerfBuilder builder(100, 4096, Stamp, out);
  builder.Append(first, ParseProcessStatm(GoldenText("pid_statm")));
  builder.Append(second, std::nullopt);
  builder.Finish(ParseProcStat(GoldenText("stat")));
  ExpectTypesMatch(out);
  ASSERT_EQ(out.size(), 4u);
  EXPECT_EQ(Value<std::wstring>(out[0], L"Name"), L"my (odd) name");
  EXPECT_EQ(Value<std::wstring>(out[1], L"Name"), L"my (odd) name#1");
  EXPECT_EQ(Value<std::wstring>(out[2], L"Name"), L"Idle");
  EXPECT_EQ(Value<std::wstring>(out[3], L"Name"), L"_Total");
  EXPECT_EQ(Value<std::uint32_t>(out[0], L"IDProcess"), 4242u);
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"PercentProcessorTime"), 420u * 100'000ull);
  // PERF_ELAPSED_TIME: the start as a FILETIME (boot plus start time since boot); Idle and
  // _Total started at boot.
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"ElapsedTime"), BootFileTime + 12345u * 100'000ull);
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"ElapsedTime"), BootFileTime);
  EXPECT_EQ(Value<std::uint64_t>(out[3], L"ElapsedTime"), BootFileTime);
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"Timestamp_Object"), Stamp.sys100ns);
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"PrivateBytes"), 123u * 4096ull);
  EXPECT_EQ(Value<std::uint64_t>(out[0], L"WorkingSetPrivate"), (431u - 402u) * 4096ull);
  EXPECT_TRUE(IsNull(out[1], L"PrivateBytes"));
  EXPECT_TRUE(IsNull(out[0], L"HandleCount"));
  EXPECT_EQ(Value<std::uint64_t>(out[2], L"PercentProcessorTime"), 155199u * 100'000ull);
  EXPECT_EQ(Value<std::uint64_t>(out[3], L"PercentProcessorTime"), (2 * 420u + 155199u) * 100'000ull);
  EXPECT_EQ(Value<std::uint64_t>(out[3], L"WorkingSet"), 2ull * 2560u * 4096u);
}

TEST(MachineClock, DateTimeConversion)
{
  const auto epoch = ToDateTime(0, 0, 0);
  EXPECT_EQ(epoch.year, 1970u);
  EXPECT_EQ(epoch.month, 1u);
  EXPECT_EQ(epoch.day, 1u);
  // 2024-02-29 23:30:00 UTC shown at -05:00 and at +01:00.
  const auto leap = ToDateTime(1709249400, 7, -300);
  EXPECT_EQ(leap.year, 2024u);
  EXPECT_EQ(leap.month, 2u);
  EXPECT_EQ(leap.day, 29u);
  EXPECT_EQ(leap.hour, 18u);
  EXPECT_EQ(leap.microseconds, 7u);
  EXPECT_EQ(leap.utc, -300);
  const auto next = ToDateTime(1709249400, 0, 60);
  EXPECT_EQ(next.month, 3u);
  EXPECT_EQ(next.day, 1u);
  EXPECT_EQ(next.hour, 0u);
  EXPECT_EQ(next.minute, 30u);
  EXPECT_EQ(TicksTo100ns(250, 100), 25'000'000u);
  EXPECT_EQ(TicksTo100ns(250, 0), 0u);
  EXPECT_EQ(ArchitectureBits("aarch64"), "64-bit");
  EXPECT_EQ(ArchitectureBits("armv7l"), "32-bit");
  EXPECT_EQ(ArchitectureBits("unknown"), "");
}
