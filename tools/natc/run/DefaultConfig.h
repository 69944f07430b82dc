// The configuration `natc run` uses when it is given none: this machine's processor, memory,
// disk and network counters ("MiPerf"), its operating system ("MiProp"), and the event logs of
// one directory ("WindowsEvents", System and Application channels).
#pragma once

#include <string>

namespace natc::run
{
// The default configuration as JSON text, reading event logs from `logDirectory` (absolute).
std::string DefaultRunConfigText(const std::string& logDirectory);
} // namespace natc::run
