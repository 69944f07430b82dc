// Win32_OperatingSystem from uname, os-release, /proc/meminfo and /proc/stat.
//
// | Property                 | MI type  | Linux source                                        |
// |--------------------------|----------|-----------------------------------------------------|
// | Caption                  | string   | os-release PRETTY_NAME (else NAME VERSION, else uname sysname) |
// | Name                     | string   | Caption + "|/" (system name and its root, as Windows joins them) |
// | Version                  | string   | uname release (the kernel version)                  |
// | BuildNumber              | string   | uname version (the kernel build)                    |
// | OSArchitecture           | string   | "64-bit" / "32-bit" from uname machine              |
// | OSType                   | uint16   | 36 (LINUX in the CIM enumeration)                   |
// | Manufacturer             | string   | os-release VENDOR_NAME, else NAME                   |
// | CSName                   | string   | uname nodename                                      |
// | TotalVisibleMemorySize   | uint64   | meminfo MemTotal (KB)                               |
// | FreePhysicalMemory       | uint64   | meminfo MemAvailable (KB): Windows counts its standby cache as free here |
// | TotalVirtualMemorySize   | uint64   | MemTotal + SwapTotal (KB)                           |
// | FreeVirtualMemory        | uint64   | MemAvailable + SwapFree (KB)                        |
// | SizeStoredInPagingFiles  | uint64   | SwapTotal (KB)                                      |
// | FreeSpaceInPagingFiles   | uint64   | SwapFree (KB)                                       |
// | LastBootUpTime           | datetime | /proc/stat btime, local time                        |
// | LocalDateTime            | datetime | the clock at the query, local time                  |
// | CurrentTimeZone          | sint16   | local offset from UTC in minutes                    |
// | NumberOfProcesses        | uint32   | numeric entries of /proc                            |
// | Primary / Distributed    | boolean  | true / false                                        |
// | Status                   | string   | "OK"                                                |
// | CreationClassName, CSCreationClassName | string | "Win32_OperatingSystem", "Win32_ComputerSystem" |
#include "ClassBuilder.h"
#include "Cim/Machine/Classes.h"
#include "Cim/Names.h"

namespace cim::machine
{
namespace
{
enum P : std::size_t
{
  Caption, Name, Version, BuildNumber, OSArchitecture, OSType, Manufacturer, CSName, CreationClassName,
  CSCreationClassName, TotalVisibleMemorySize, FreePhysicalMemory, TotalVirtualMemorySize, FreeVirtualMemory,
  SizeStoredInPagingFiles, FreeSpaceInPagingFiles, LastBootUpTime, LocalDateTime, CurrentTimeZone,
  NumberOfProcesses, Primary, Distributed, Status, Count
};

std::optional<std::string> Find(const std::map<std::string, std::string, std::less<>>& values, std::string_view key)
{
  const auto found = values.find(key);
  if (found == values.end() || found->second.empty())
    return std::nullopt;
  return found->second;
}

std::optional<std::uint64_t> Sum(std::optional<std::uint64_t> left, std::optional<std::uint64_t> right)
{
  if (!left || !right)
    return std::nullopt;
  return *left + *right;
}
} // namespace

std::string ArchitectureBits(std::string_view machine)
{
  if (machine == "x86_64" || machine == "aarch64" || machine == "arm64" || machine == "ppc64" ||
      machine == "ppc64le" || machine == "s390x" || machine == "riscv64" || machine == "mips64" ||
      machine == "loongarch64" || machine == "sparc64")
    return "64-bit";
  if (machine == "i386" || machine == "i486" || machine == "i586" || machine == "i686" ||
      machine.substr(0, 3) == "arm" || machine == "ppc" || machine == "mips" || machine == "riscv32")
    return "32-bit";
  return {};
}

std::shared_ptr<const ClassDecl> OperatingSystemClass()
{
  static const auto decl = MakeClass(L"Win32_OperatingSystem", Count, {
      {L"Caption", Type::String},
      {L"Name", Type::String, 0, true},
      {L"Version", Type::String},
      {L"BuildNumber", Type::String},
      {L"OSArchitecture", Type::String},
      {L"OSType", Type::UInt16},
      {L"Manufacturer", Type::String},
      {L"CSName", Type::String},
      {L"CreationClassName", Type::String},
      {L"CSCreationClassName", Type::String},
      {L"TotalVisibleMemorySize", Type::UInt64},
      {L"FreePhysicalMemory", Type::UInt64},
      {L"TotalVirtualMemorySize", Type::UInt64},
      {L"FreeVirtualMemory", Type::UInt64},
      {L"SizeStoredInPagingFiles", Type::UInt64},
      {L"FreeSpaceInPagingFiles", Type::UInt64},
      {L"LastBootUpTime", Type::DateTime},
      {L"LocalDateTime", Type::DateTime},
      {L"CurrentTimeZone", Type::SInt16},
      {L"NumberOfProcesses", Type::UInt32},
      {L"Primary", Type::Boolean},
      {L"Distributed", Type::Boolean},
      {L"Status", Type::String},
  });
  return decl;
}

void BuildOperatingSystem(const OperatingSystemFacts& facts, std::vector<Instance>& out)
{
  auto& os = out.emplace_back(OperatingSystemClass());
  std::string caption;
  if (auto pretty = Find(facts.osRelease, "PRETTY_NAME"))
    caption = *pretty;
  else if (auto name = Find(facts.osRelease, "NAME"))
    caption = *name + (Find(facts.osRelease, "VERSION") ? " " + *Find(facts.osRelease, "VERSION") : std::string());
  else
    caption = facts.uname.sysname;
  if (!caption.empty())
  {
    Put(os, Caption, Widen(caption));
    Put(os, Name, Widen(caption + "|/"));
  }
  if (!facts.uname.release.empty())
    Put(os, Version, Widen(facts.uname.release));
  if (!facts.uname.version.empty())
    Put(os, BuildNumber, Widen(facts.uname.version));
  if (const auto bits = ArchitectureBits(facts.uname.machine); !bits.empty())
    Put(os, OSArchitecture, Widen(bits));
  Put(os, OSType, std::uint16_t{36});
  if (auto vendor = Find(facts.osRelease, "VENDOR_NAME"))
    Put(os, Manufacturer, Widen(*vendor));
  else if (auto name = Find(facts.osRelease, "NAME"))
    Put(os, Manufacturer, Widen(*name));
  if (!facts.uname.nodename.empty())
    Put(os, CSName, Widen(facts.uname.nodename));
  Put(os, CreationClassName, std::wstring(L"Win32_OperatingSystem"));
  Put(os, CSCreationClassName, std::wstring(L"Win32_ComputerSystem"));

  const auto memTotal = Lookup(facts.meminfo, "MemTotal");
  auto available = Lookup(facts.meminfo, "MemAvailable");
  if (!available)
    available = Lookup(facts.meminfo, "MemFree"); // kernels before 3.14
  const auto swapTotal = Lookup(facts.meminfo, "SwapTotal");
  const auto swapFree = Lookup(facts.meminfo, "SwapFree");
  PutIf(os, TotalVisibleMemorySize, memTotal);
  PutIf(os, FreePhysicalMemory, available);
  PutIf(os, TotalVirtualMemorySize, Sum(memTotal, swapTotal));
  PutIf(os, FreeVirtualMemory, Sum(available, swapFree));
  PutIf(os, SizeStoredInPagingFiles, swapTotal);
  PutIf(os, FreeSpaceInPagingFiles, swapFree);

  if (facts.bootTime)
    Put(os, LastBootUpTime, ToDateTime(static_cast<std::int64_t>(*facts.bootTime), 0, facts.now.utcOffsetMinutes));
  Put(os, LocalDateTime, ToDateTime(facts.now.seconds, facts.now.microseconds, facts.now.utcOffsetMinutes));
  Put(os, CurrentTimeZone, static_cast<std::int16_t>(facts.now.utcOffsetMinutes));
  PutIf(os, NumberOfProcesses, facts.processCount);
  Put(os, Primary, true);
  Put(os, Distributed, false);
  Put(os, Status, std::wstring(L"OK"));
}
} // namespace cim::machine
