// Where a host's logs are: EvtOpenSession's server name to a directory of channel files, and a
// channel path to its file name in that directory, as Windows names them.
#pragma once

#include "Platform/WinEvt.h"

#include <optional>
#include <string>
#include <string_view>

namespace natc::winevt
{
// This machine's log directory: $NATC_EVENT_LOG_DIR, or NATC_EVENT_LOG_DIR_DEFAULT when unset.
std::string LocalLogDirectory();

// An absolute path names its directory (which must exist); null, "", "localhost", "." and this
// machine's host name name LocalLogDirectory(); anything else resolves to nothing (nullopt).
std::optional<std::string> ResolveHost(const wchar_t* server, const std::string& localHostName);
// The host name of this machine (gethostname), lower case.
std::string ThisHostName();

// "Microsoft-Windows-Sysmon/Operational" -> "Microsoft-Windows-Sysmon%4Operational.evtx".
std::string ChannelFileName(std::wstring_view channel);
// The channel's file in directory, or nullopt when there is none. Channel names are not case
// sensitive on Windows: a file that differs only in case is found as well.
std::optional<std::string> FindChannelFile(const std::string& directory, std::wstring_view channel);
} // namespace natc::winevt
