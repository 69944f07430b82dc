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
// One problem of a configuration: "<file>:<line>: <path>: <reason>".
struct SConfigProblem
{
  std::string file;
  int line = 0;
  std::string reason;

  std::string Text() const { return file + ":" + std::to_string(line) + ": " + reason; }
};

// A rejected configuration: one line per problem, the first one's parts by File/Line/Reason.
class CConfigError : public std::runtime_error
{
public:
  CConfigError(std::string file, int line, std::string reason);
  explicit CConfigError(std::vector<SConfigProblem> problems);
  const std::string& File() const noexcept { return m_problems.front().file; }
  int Line() const noexcept { return m_problems.front().line; }
  const std::string& Reason() const noexcept { return m_problems.front().reason; }
  const std::vector<SConfigProblem>& Problems() const noexcept { return m_problems; }

private:
  std::vector<SConfigProblem> m_problems;
};

struct SHostConfig
{
  std::string id;
  std::wstring name;
};

// Where a user's password comes from: the configuration itself, an environment variable or a
// file (whose path is relative to the configuration's directory).
struct SPasswordSource
{
  enum class EKind
  {
    Literal,
    Environment,
    File
  };
  EKind kind = EKind::Literal;
  // The variable's name or the file's path; empty for a literal.
  std::string name;
  int line = 0;
  // "users[0].password", for messages.
  std::string path;
};

struct SUserConfig
{
  std::string id;
  std::wstring name;
  // The literal password; filled from the source by ResolvePasswords for the others.
  std::wstring password;
  SPasswordSource passwordSource;
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
  // "tasks[0].collections[1]", for messages.
  std::string path;
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
// The same, but keeps going: returns the entries that are right and adds a problem for every
// one that is not (a syntax error still throws CConfigError, as nothing can be read then).
SRunConfig ParseRunConfig(std::string_view text, const std::string& fileName, std::vector<SConfigProblem>& problems);
} // namespace natc::run
