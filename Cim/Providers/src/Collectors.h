// Collectors: read this machine's files for one class, parse them and build its instances.
// Each is one query's worth of reads; none keeps state, so concurrent queries are safe. The raw
// performance classes count their PerfTime at the given frequency.
#pragma once

#include "Cim/Model.h"

#include <cstdint>
#include <vector>

namespace cim::machine
{
void CollectOperatingSystem(std::vector<Instance>& out);
void CollectComputerSystem(std::vector<Instance>& out);
void CollectLogicalDisks(std::vector<Instance>& out);
void CollectProcesses(std::vector<Instance>& out);
void CollectProcessorPerf(std::uint64_t perfFrequency, std::vector<Instance>& out);
void CollectMemoryPerf(std::uint64_t perfFrequency, std::vector<Instance>& out);
void CollectSystemPerf(std::uint64_t perfFrequency, std::vector<Instance>& out);
void CollectPhysicalDiskPerf(std::uint64_t perfFrequency, std::vector<Instance>& out);
void CollectNetworkInterfacePerf(std::uint64_t perfFrequency, std::vector<Instance>& out);
void CollectProcessPerf(std::uint64_t perfFrequency, std::vector<Instance>& out);
} // namespace cim::machine
