// Win32_ComputerSystem from uname, getdomainname, /proc/cpuinfo, /proc/meminfo and the
// firmware's DMI strings.
//
// | Property                  | MI type | Linux source                                        |
// |---------------------------|---------|-----------------------------------------------------|
// | Name, Caption, DNSHostName| string  | uname nodename up to its first dot                  |
// | Domain                    | string  | the rest of a dotted nodename, else the NIS domain, else "WORKGROUP" |
// | PartOfDomain              | boolean | whether a domain was found                          |
// | Workgroup                 | string  | "WORKGROUP" when not part of a domain, else null    |
// | Manufacturer, Model       | string  | /sys/class/dmi/id/sys_vendor, product_name (null if unreadable) |
// | SystemFamily              | string  | /sys/class/dmi/id/product_family                    |
// | NumberOfProcessors        | uint32  | distinct "physical id" of cpuinfo (1 when not shown)|
// | NumberOfLogicalProcessors | uint32  | "processor" entries of cpuinfo (else online CPUs)   |
// | TotalPhysicalMemory       | uint64  | meminfo MemTotal in bytes                           |
// | SystemType                | string  | "x64-based PC", "ARM64-based PC", "X86-based PC" from uname machine |
// | HypervisorPresent         | boolean | "hypervisor" cpu flag                               |
// | CurrentTimeZone           | sint16  | local offset from UTC in minutes                    |
// | Status                    | string  | "OK"                                                |
// | CreationClassName         | string  | "Win32_ComputerSystem"                              |
#include "ClassBuilder.h"
#include "Cim/Machine/Classes.h"
#include "Cim/Names.h"

namespace cim::machine
{
namespace
{
enum P : std::size_t
{
  Name, Caption, DNSHostName, Domain, PartOfDomain, Workgroup, Manufacturer, Model, SystemFamily,
  NumberOfProcessors, NumberOfLogicalProcessors, TotalPhysicalMemory, SystemType, HypervisorPresent,
  CurrentTimeZone, Status, CreationClassName, Count
};

std::wstring SystemTypeOf(std::string_view machine)
{
  if (machine == "x86_64")
    return L"x64-based PC";
  if (machine == "aarch64" || machine == "arm64")
    return L"ARM64-based PC";
  if (machine.size() == 4 && machine[0] == 'i' && machine.substr(2) == "86")
    return L"X86-based PC";
  return Widen(machine);
}
} // namespace

std::shared_ptr<const ClassDecl> ComputerSystemClass()
{
  static const auto decl = MakeClass(L"Win32_ComputerSystem", Count, {
      {L"Name", Type::String, 0, true},
      {L"Caption", Type::String},
      {L"DNSHostName", Type::String},
      {L"Domain", Type::String},
      {L"PartOfDomain", Type::Boolean},
      {L"Workgroup", Type::String},
      {L"Manufacturer", Type::String},
      {L"Model", Type::String},
      {L"SystemFamily", Type::String},
      {L"NumberOfProcessors", Type::UInt32},
      {L"NumberOfLogicalProcessors", Type::UInt32},
      {L"TotalPhysicalMemory", Type::UInt64},
      {L"SystemType", Type::String},
      {L"HypervisorPresent", Type::Boolean},
      {L"CurrentTimeZone", Type::SInt16},
      {L"Status", Type::String},
      {L"CreationClassName", Type::String},
  });
  return decl;
}

void BuildComputerSystem(const ComputerSystemFacts& facts, std::vector<Instance>& out)
{
  auto& cs = out.emplace_back(ComputerSystemClass());
  const std::string_view node(facts.uname.nodename);
  const auto dot = node.find('.');
  const auto host = Widen(node.substr(0, dot));
  Put(cs, Name, host);
  Put(cs, Caption, host);
  Put(cs, DNSHostName, host);

  std::string domain;
  if (dot != std::string_view::npos && dot + 1 < node.size())
    domain = node.substr(dot + 1);
  else if (!facts.nisDomain.empty() && facts.nisDomain != "(none)")
    domain = facts.nisDomain;
  Put(cs, PartOfDomain, !domain.empty());
  if (domain.empty())
  {
    Put(cs, Domain, std::wstring(L"WORKGROUP"));
    Put(cs, Workgroup, std::wstring(L"WORKGROUP"));
  }
  else
    Put(cs, Domain, Widen(domain));

  if (facts.vendor)
    Put(cs, Manufacturer, Widen(*facts.vendor));
  if (facts.product)
    Put(cs, Model, Widen(*facts.product));
  if (facts.family)
    Put(cs, SystemFamily, Widen(*facts.family));

  const auto logical = facts.cpu.logicalProcessors != 0 ? facts.cpu.logicalProcessors : facts.onlineProcessors;
  if (logical != 0)
  {
    Put(cs, NumberOfLogicalProcessors, logical);
    Put(cs, NumberOfProcessors, facts.cpu.packages != 0 ? facts.cpu.packages : std::uint32_t{1});
  }
  if (const auto total = Lookup(facts.meminfo, "MemTotal"))
    Put(cs, TotalPhysicalMemory, *total * 1024);
  if (!facts.uname.machine.empty())
    Put(cs, SystemType, SystemTypeOf(facts.uname.machine));
  Put(cs, HypervisorPresent, facts.cpu.hypervisor);
  Put(cs, CurrentTimeZone, static_cast<std::int16_t>(facts.utcOffsetMinutes));
  Put(cs, Status, std::wstring(L"OK"));
  Put(cs, CreationClassName, std::wstring(L"Win32_ComputerSystem"));
}
} // namespace cim::machine
