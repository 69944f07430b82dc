// The Win32_* classes this machine serves: their declarations, and pure builders that turn
// parsed facts into instances. Providers (MachineProviders.h) gather the facts and call these;
// tests call them with facts parsed from captured texts.
//
// Raw performance classes carry the "CounterType" qualifier of their Windows counterparts and
// raw values as Windows publishes them, on the time bases of Clock.h, with the "_Base"
// properties of the Windows class. Unknown values are null. Each builder's file holds its
// mapping table.
#pragma once

#include "Cim/Machine/Clock.h"
#include "Cim/Machine/DeviceParsers.h"
#include "Cim/Machine/ProcessParsers.h"
#include "Cim/Machine/SystemParsers.h"
#include "Cim/Model.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace cim::machine
{
struct UnameFacts
{
  std::string sysname, nodename, release, version, machine;
};

// Local time of the query: seconds since 1970 UTC, microseconds, zone offset in minutes.
struct WallClock
{
  std::int64_t seconds = 0;
  std::uint32_t microseconds = 0;
  std::int32_t utcOffsetMinutes = 0;
};

// ---- Win32_OperatingSystem
struct OperatingSystemFacts
{
  UnameFacts uname;
  std::map<std::string, std::string, std::less<>> osRelease;
  NamedNumbers meminfo; // kB
  std::optional<std::uint64_t> bootTime;
  std::optional<std::uint32_t> processCount;
  WallClock now;
};
std::shared_ptr<const ClassDecl> OperatingSystemClass();
void BuildOperatingSystem(const OperatingSystemFacts& facts, std::vector<Instance>& out);
// "64-bit" or "32-bit" for a uname machine name; empty when unknown.
std::string ArchitectureBits(std::string_view machine);

// ---- Win32_ComputerSystem
struct ComputerSystemFacts
{
  UnameFacts uname;
  std::string nisDomain; // getdomainname(); "(none)" or empty when unset
  CpuInfo cpu;
  std::uint32_t onlineProcessors = 0;
  NamedNumbers meminfo;
  std::optional<std::string> vendor, product, family; // /sys/class/dmi/id
  std::int32_t utcOffsetMinutes = 0;
};
std::shared_ptr<const ClassDecl> ComputerSystemClass();
void BuildComputerSystem(const ComputerSystemFacts& facts, std::vector<Instance>& out);

// Windows base priority of a Linux process: its scheduling class and nice value mapped to the
// Windows priority classes (idle 4, below normal 6, normal 8, above normal 10, high 13,
// real time 24).
std::uint32_t WindowsPriority(const ProcessStat& stat);

// ---- Win32_Process
struct ProcessContext
{
  std::uint64_t bootTime = 0;       // seconds since 1970 UTC
  std::uint64_t ticksPerSecond = 100;
  std::uint64_t pageSize = 4096;
  std::int32_t utcOffsetMinutes = 0;
  std::wstring hostName;
};
struct ProcessFacts
{
  ProcessStat stat;
  ProcessStatus status;
  std::string cmdline;
  std::optional<std::string> executablePath;
};
std::shared_ptr<const ClassDecl> ProcessClass();
void AppendProcess(const ProcessFacts& facts, const ProcessContext& context, std::vector<Instance>& out);

// ---- Win32_LogicalDisk
struct FileSystemStats
{
  std::uint64_t blocks = 0, blocksAvailable = 0, fragmentSize = 0, nameMax = 0;
  bool readOnly = false;
};
struct MountFacts
{
  MountEntry mount;
  std::optional<FileSystemStats> stats; // absent when statvfs failed
  std::optional<std::string> label;
};
// Whether a file system type holds user data worth reporting (not proc, sysfs, tmpfs...).
bool IsReportedFileSystem(std::string_view fsType);
// Windows DriveType: 3 local disk, 4 network drive, 5 compact disc.
std::uint32_t DriveTypeOf(std::string_view fsType);
std::shared_ptr<const ClassDecl> LogicalDiskClass();
// Mounts in /proc/mounts order; a mount point mounted over reports its last (visible) mount.
void BuildLogicalDisks(const std::vector<MountFacts>& mounts, const std::wstring& hostName, std::vector<Instance>& out);

// ---- Win32_PerfRawData_PerfOS_Processor
std::shared_ptr<const ClassDecl> ProcessorPerfClass();
// Instances "0", "1", ... (per CPU of /proc/stat) and "_Total" (times averaged over CPUs,
// interrupts summed).
void BuildProcessorPerf(const ProcStat& stat, const std::map<std::uint32_t, std::uint64_t>& interrupts,
                        std::uint64_t ticksPerSecond, const PerfStamp& stamp, std::vector<Instance>& out);

// ---- Win32_PerfRawData_PerfOS_Memory
std::shared_ptr<const ClassDecl> MemoryPerfClass();
void BuildMemoryPerf(const NamedNumbers& meminfo, const NamedNumbers& vmstat, const PerfStamp& stamp,
                     std::vector<Instance>& out);

// ---- Win32_PerfRawData_PerfOS_System
struct SystemPerfFacts
{
  ProcStat stat;
  std::optional<LoadAvg> loadavg;
  std::optional<std::uint32_t> processCount;
  std::uint32_t onlineProcessors = 0;
};
std::shared_ptr<const ClassDecl> SystemPerfClass();
void BuildSystemPerf(const SystemPerfFacts& facts, const PerfStamp& stamp, std::vector<Instance>& out);

// ---- Win32_PerfRawData_PerfDisk_PhysicalDisk
std::shared_ptr<const ClassDecl> PhysicalDiskPerfClass();
// Whether a /sys/block entry is a physical disk: its device link does not lead under
// /sys/devices/virtual (loop, ram, zram, device-mapper and md devices do).
bool IsPhysicalDisk(std::string_view sysBlockLinkTarget);
// One instance per disk of diskstats whose name is in physicalDisks, and "_Total".
void BuildPhysicalDiskPerf(const std::vector<DiskStat>& disks, const std::set<std::string, std::less<>>& physicalDisks,
                           const PerfStamp& stamp, std::vector<Instance>& out);

// ---- Win32_PerfRawData_Tcpip_NetworkInterface
std::shared_ptr<const ClassDecl> NetworkInterfacePerfClass();
// Every interface but the loopback; speeds in Mbit/s by interface name (absent: unknown).
void BuildNetworkInterfacePerf(const std::vector<NetDevStat>& interfaces,
                               const std::map<std::string, std::int64_t, std::less<>>& speeds,
                               const PerfStamp& stamp, std::vector<Instance>& out);

// ---- Win32_PerfRawData_PerfProc_Process
std::shared_ptr<const ClassDecl> ProcessPerfClass();
// Builds the instances of one query: Append each process (in increasing process id order, so
// that repeated names get "#1", "#2"... as Windows numbers them), then Finish adds "Idle" and
// "_Total".
class ProcessPerfBuilder
{
public:
  ProcessPerfBuilder(std::uint64_t ticksPerSecond, std::uint64_t pageSize, const PerfStamp& stamp,
                     std::vector<Instance>& out);
  void Append(const ProcessStat& stat, const std::optional<ProcessStatm>& statm);
  void Finish(const ProcStat& systemStat);

private:
  std::uint64_t m_ticksPerSecond;
  std::uint64_t m_pageSize;
  PerfStamp m_stamp;
  std::vector<Instance>& m_out;
  std::unordered_map<std::string, std::uint32_t> m_nameCounts;
  std::uint64_t m_faults = 0, m_privileged = 0, m_user = 0, m_private = 0, m_threads = 0, m_virtual = 0,
                m_workingSet = 0, m_workingSetPrivate = 0;
};
} // namespace cim::machine
