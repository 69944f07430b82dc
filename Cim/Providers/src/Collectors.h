// Collectors: read this machine's files for one class, parse them and build its instances.
// Each is one query's worth of reads; none keeps state, so concurrent queries are safe.
#pragma once

#include "Cim/Model.h"

#include <vector>

namespace cim::machine
{
void CollectOperatingSystem(std::vector<Instance>& out);
void CollectComputerSystem(std::vector<Instance>& out);
void CollectLogicalDisks(std::vector<Instance>& out);
void CollectProcesses(std::vector<Instance>& out);
void CollectProcessorPerf(std::vector<Instance>& out);
void CollectMemoryPerf(std::vector<Instance>& out);
void CollectSystemPerf(std::vector<Instance>& out);
void CollectPhysicalDiskPerf(std::vector<Instance>& out);
void CollectNetworkInterfacePerf(std::vector<Instance>& out);
void CollectProcessPerf(std::vector<Instance>& out);
} // namespace cim::machine
