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

// The log directory a session reads (this machine's when session is null): ERROR_SUCCESS, or the
// error Windows reports when the host is checked, at the first call that reads from it:
// RPC_S_SERVER_UNAVAILABLE, ERROR_LOGON_FAILURE, ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE.
DWORD Connect(EVT_HANDLE session, std::string& directory);

// Test hosts that check logons. A directory registered here accepts only this user (case
// ignored) with this password, and fails any other logon with ERROR_LOGON_FAILURE; with
// mayReadLogs false the logon succeeds and reading fails with ERROR_ACCESS_DENIED. Directories
// not registered accept any logon, as the files are read with the process's rights.
void RegisterHostAccount(const std::string& directory, std::wstring user, std::wstring password, bool mayReadLogs);
void ForgetHostAccount(const std::string& directory);
// ERROR_SUCCESS when the directory accepts the logon, else the error to report.
DWORD CheckLogon(const std::string& directory, std::wstring_view user, std::wstring_view password);

// "Microsoft-Windows-Sysmon/Operational" -> "Microsoft-Windows-Sysmon%4Operational.evtx".
std::string ChannelFileName(std::wstring_view channel);
// The channel's file in directory, or nullopt when there is none. Channel names are not case
// sensitive on Windows: a file that differs only in case is found as well.
std::optional<std::string> FindChannelFile(const std::string& directory, std::wstring_view channel);
} // namespace natc::winevt
