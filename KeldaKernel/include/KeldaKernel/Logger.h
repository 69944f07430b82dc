// The process-wide logger. Levels are the ELogLevel numbers; a line is written when its level
// is at least the current level. Lines go to stderr by default, or to a file when configured,
// and to any sinks that were added (tests add one to read the lines). Thread-safe.
#pragma once

#include "KeldaKernel/Strings.h"

#include <exception>
#include <memory>
#include <string_view>

enum class ELogLevel : int
{
  Debug = -1,
  Info = 1,
  Error = 3,
  Off = 100,
};

// The level a NATC_LOG_LEVEL value names (debug, info, error, off; any case); Info otherwise.
// The logger takes its initial level from that environment variable.
ELogLevel ParseLogLevel(std::string_view name) noexcept;

// Receives every written line (already prefixed and, for exceptions, with the error text).
class ILogSink
{
public:
  virtual ~ILogSink() = default;
  virtual void write(ELogLevel level, std::wstring_view line) = 0;
};

class CKeldaLogger
{
public:
  static CKeldaLogger& instance();

  ELogLevel level() const noexcept;
  void setLevel(ELogLevel level) noexcept;

  void writeImpl(ELogLevel level, std::wstring_view line);
  // Writes `line` followed by the exception's description, HRESULT and throw location.
  void writeExceptionImpl(ELogLevel level, const std::exception& error, const char* function, const char* file,
                          int lineNumber, bool withDetails, std::wstring_view line);

  // Output configuration: stderr (default) or a file; extra sinks receive every written line.
  void useStderr(bool enabled);
  void useFile(const std::string& path);
  void addSink(std::shared_ptr<ILogSink> sink);
  void removeSink(const std::shared_ptr<ILogSink>& sink);

  CKeldaLogger(const CKeldaLogger&) = delete;
  CKeldaLogger& operator=(const CKeldaLogger&) = delete;

private:
  CKeldaLogger();
  ~CKeldaLogger();
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
