// The checks of a `natc run` configuration that need this machine: the WQL of every "MiProp"
// collection parses, and on this machine's MI its class and properties exist; every "MiPerf"
// counter's class and counter are known to this machine's MI. Remote hosts get the syntax check
// only. Nothing is started; a query that runs is closed after its first result.
//   for (const auto& problem : natc::run::CheckAgainstHost(config, "natc-run.json")) ...
#pragma once

#include "RunConfig.h"

#include <string>
#include <vector>

namespace natc::run
{
std::vector<SConfigProblem> CheckAgainstHost(const SRunConfig& config, const std::string& fileName);
} // namespace natc::run
