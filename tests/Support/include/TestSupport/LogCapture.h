// Log capture for tests. CCapturingSink keeps every line the process logger writes, with its
// level, and lets a test count lines or wait (bounded) for one without sleeping. CLoggerCapture
// adds one to the logger for a scope, at a given level and with stderr off, and restores both.
//   natc_test::CLoggerCapture capture(ELogLevel::Info);
//   ...
//   EXPECT_TRUE(capture.Sink().WaitFor(L"New state: Stopped"));
#pragma once

#include "KeldaKernel/Logger.h"
#include "Platform/Windows.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace natc_test
{
using namespace std::chrono_literals;

// Long enough never to matter on a loaded machine; reaching it fails the test.
constexpr auto waitLimit = 20s;

struct LogLine
{
  ELogLevel level;
  std::wstring text;
};

class CCapturingSink : public ILogSink
{
public:
  void write(ELogLevel level, std::wstring_view line) override
  {
    {
      const std::lock_guard lock(m_lock);
      m_lines.push_back({level, std::wstring(line)});
    }
    m_changed.notify_all();
    // A real sink may change the last-error code: doing so shows whether the code that logs
    // keeps it for its caller.
    SetLastError(ERROR_INVALID_DATA);
  }

  std::vector<LogLine> Lines() const
  {
    const std::lock_guard lock(m_lock);
    return m_lines;
  }

  // Lines that contain `fragment`.
  std::size_t Count(std::wstring_view fragment) const
  {
    const std::lock_guard lock(m_lock);
    return CountLocked(fragment);
  }

  // Waits until `times` lines contain `fragment`; false when the wait limit passed first.
  bool WaitFor(std::wstring_view fragment, std::size_t times = 1) const
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] { return CountLocked(fragment) >= times; });
  }

private:
  // The caller holds m_lock.
  std::size_t CountLocked(std::wstring_view fragment) const
  {
    std::size_t count = 0;
    for (const auto& line : m_lines)
    {
      count += line.text.find(fragment) != std::wstring::npos ? 1 : 0;
    }
    return count;
  }

  mutable std::mutex m_lock;
  mutable std::condition_variable m_changed;
  std::vector<LogLine> m_lines;
};

class CLoggerCapture
{
public:
  explicit CLoggerCapture(ELogLevel level = ELogLevel::Debug)
    : m_sink(std::make_shared<CCapturingSink>()), m_previousLevel(CKeldaLogger::instance().level())
  {
    CKeldaLogger::instance().setLevel(level);
    CKeldaLogger::instance().useStderr(false);
    CKeldaLogger::instance().addSink(m_sink);
  }
  ~CLoggerCapture()
  {
    CKeldaLogger::instance().removeSink(m_sink);
    CKeldaLogger::instance().setLevel(m_previousLevel);
    CKeldaLogger::instance().useStderr(true);
  }
  CLoggerCapture(const CLoggerCapture&) = delete;
  CLoggerCapture& operator=(const CLoggerCapture&) = delete;

  CCapturingSink& Sink() { return *m_sink; }

private:
  std::shared_ptr<CCapturingSink> m_sink;
  ELogLevel m_previousLevel;
};
} // namespace natc_test
