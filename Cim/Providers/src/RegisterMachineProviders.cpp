// The providers of this machine's "root/cimv2": one per class, each a declaration and a
// collector that reads the machine when a query enumerates the class.
#include "Cim/Machine/Classes.h"
#include "Cim/Provider.h"
#include "Collectors.h"

namespace cim
{
namespace
{
class MachineProvider final : public Provider
{
public:
  using Collect = void (*)(std::uint64_t perfFrequency, std::vector<Instance>&);
  MachineProvider(std::shared_ptr<const ClassDecl> decl, Collect collect, std::uint64_t perfFrequency)
      : m_decl(std::move(decl)), m_collect(collect), m_perfFrequency(perfFrequency)
  {
  }
  std::shared_ptr<const ClassDecl> Class() const override { return m_decl; }
  void Enumerate(std::vector<Instance>& out) override { m_collect(m_perfFrequency, out); }

private:
  std::shared_ptr<const ClassDecl> m_decl;
  Collect m_collect;
  std::uint64_t m_perfFrequency;
};

// A collector of a class that has no performance time base.
template <void (*collect)(std::vector<Instance>&)>
void WithoutFrequency(std::uint64_t /*perfFrequency*/, std::vector<Instance>& out)
{
  collect(out);
}
} // namespace

void RegisterMachineProviders(Host& host)
{
  using namespace machine;
  const std::pair<std::shared_ptr<const ClassDecl>, MachineProvider::Collect> classes[] = {
      {OperatingSystemClass(), &WithoutFrequency<&CollectOperatingSystem>},
      {ComputerSystemClass(), &WithoutFrequency<&CollectComputerSystem>},
      {ProcessClass(), &WithoutFrequency<&CollectProcesses>},
      {LogicalDiskClass(), &WithoutFrequency<&CollectLogicalDisks>},
      {ProcessorPerfClass(), &CollectProcessorPerf},
      {MemoryPerfClass(), &CollectMemoryPerf},
      {SystemPerfClass(), &CollectSystemPerf},
      {PhysicalDiskPerfClass(), &CollectPhysicalDiskPerf},
      {NetworkInterfacePerfClass(), &CollectNetworkInterfacePerf},
      {ProcessPerfClass(), &CollectProcessPerf},
  };
  for (const auto& [decl, collect] : classes)
    host.Register(L"root/cimv2", std::make_shared<MachineProvider>(decl, collect, host.PerfFrequency()));
}
} // namespace cim
