// The demo event logs that `natc run` reads when it is given neither a configuration nor
// --logs: System.evtx and Application.evtx written by natc itself with the .evtx writer, in a
// cache directory whose README says that the files are generated, not real Windows logs.
//   std::string dir = natc::run::DemoLogDirectory();   // $XDG_CACHE_HOME/natc/demo-logs ...
//   natc::run::EnsureDemoLogs(dir);                      // writes them on first use
#pragma once

#include <string>

namespace natc::run
{
// $XDG_CACHE_HOME/natc/demo-logs, else $HOME/.cache/natc/demo-logs, else a directory under
// the system's temporary directory; on Windows natc-demo-logs in the user's temporary folder.
std::string DemoLogDirectory();

// Writes the demo logs into `directory` unless they are there already; returns true when it
// wrote them. Throws std::runtime_error when the directory or a file cannot be written.
bool EnsureDemoLogs(const std::string& directory);
} // namespace natc::run
