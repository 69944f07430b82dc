// The configuration of `natc run`: hosts, users, tasks and their collections, read from JSON
// and checked completely before anything starts. Every problem is reported with the file, the
// line and what is wrong:
//   natc-run.json:14: tasks[0].collections[1].type: unknown collection type "miprop" ...
// The format is documented by examples/natc-run.json. Parsing is pure (no OS calls).
#pragma once

#include "Collector/Interfaces/MiInit.h"
#include "Collector/Interfaces/PerformanceInit.h"
#include "Collector/Interfaces/WinEventsInit.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace natc::run
{
// A rejected configuration: "<file>:<line>: <reason>".
class CConfigError : public std::runtime_error
{
public:
  CConfigError(std::string file, int line, std::string reason);
  const std::string& File() const noexcept { return m_file; }
  int Line() const noexcept { return m_line; }
  const std::string& Reason() const noexcept { return m_reason; }

private:
  std::string m_file;
  int m_line;
  std::string m_reason;
};

struct SHostConfig
{
  std::string id;
  std::wstring name;
};

struct SUserConfig
{
  std::string id;
  std::wstring name;
  std::wstring password;
};

struct SCollectionConfig
{
  // "WindowsEvents", "MiProp" or "MiPerf".
  std::wstring type;
  // Seconds between updates; empty for the library's default (one minute).
  std::optional<int> period;
  // Exactly one of these is used, by type.
  std::vector<collector::ni::win_events::SFilter> eventFilters;
  collector::ni::mi::Filter miFilter;
  std::vector<collector::ni::performance::IMiPerfCollectionInit::CounterFilter> counters;
  int line = 0;
};

struct STaskConfig
{
  std::wstring name;
  std::string host;
  // Empty: the default user (the process's own identity).
  std::string user;
  std::vector<SCollectionConfig> collections;
  int line = 0;
};

struct SRunConfig
{
  std::vector<SHostConfig> hosts;
  std::vector<SUserConfig> users;
  std::vector<STaskConfig> tasks;
};

// Parses and checks `text`, naming `fileName` in errors; throws CConfigError.
SRunConfig ParseRunConfig(std::string_view text, const std::string& fileName);
} // namespace natc::run
