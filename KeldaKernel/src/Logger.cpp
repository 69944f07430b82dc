// The process-wide logger over spdlog. One mutex serialises formatting and output, so the
// spdlog sinks are the single-threaded kind; extra sinks are called outside it on a snapshot,
// so a sink may itself log without deadlocking.
#include "KeldaKernel/Logger.h"

#include "KeldaKernel/Exceptions.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

namespace
{
using SinkList = std::vector<std::shared_ptr<ILogSink>>;

spdlog::level::level_enum ToSpdlog(ELogLevel level)
{
  const int value = static_cast<int>(level);
  if (value <= static_cast<int>(ELogLevel::Debug))
    return spdlog::level::debug;
  if (value <= static_cast<int>(ELogLevel::Info))
    return spdlog::level::info;
  if (value < static_cast<int>(ELogLevel::Error))
    return spdlog::level::warn;
  return spdlog::level::err;
}

ELogLevel LevelFromEnvironment()
{
  const char* value = std::getenv("NATC_LOG_LEVEL");
  return value == nullptr ? ELogLevel::Info : ParseLogLevel(value);
}

std::string Hex(HRESULT hr)
{
  char buffer[16];
  std::snprintf(buffer, sizeof(buffer), "0x%08X", static_cast<unsigned>(hr));
  return buffer;
}
} // namespace

ELogLevel ParseLogLevel(std::string_view name) noexcept
{
  const auto is = [name](std::string_view word) {
    return name.size() == word.size() && std::equal(name.begin(), name.end(), word.begin(), [](char a, char b) {
             return std::tolower(static_cast<unsigned char>(a)) == b;
           });
  };
  if (is("debug"))
    return ELogLevel::Debug;
  if (is("error"))
    return ELogLevel::Error;
  if (is("off"))
    return ELogLevel::Off;
  return ELogLevel::Info;
}

struct CKeldaLogger::Impl
{
  std::atomic<int> level{static_cast<int>(ELogLevel::Info)};
  std::mutex lock;
  spdlog::logger output{"kelda"};
  spdlog::sink_ptr stderrSink;
  spdlog::sink_ptr fileSink;
  std::shared_ptr<const SinkList> extraSinks = std::make_shared<const SinkList>();

  bool Enabled(ELogLevel message) const noexcept
  {
    const int current = level.load(std::memory_order_relaxed);
    return current != static_cast<int>(ELogLevel::Off) && message != ELogLevel::Off &&
           static_cast<int>(message) >= current;
  }

  // Caller holds `lock`.
  void RebuildSinks()
  {
    auto& sinks = output.sinks();
    sinks.clear();
    for (const auto& sink : {stderrSink, fileSink})
      if (sink)
        sinks.push_back(sink);
  }

  static spdlog::sink_ptr Prepare(spdlog::sink_ptr sink)
  {
    // UTC time stamps: every date the collector handles is UTC.
    sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%eZ [%l] %v",
                                                                    spdlog::pattern_time_type::utc));
    return sink;
  }

  void Write(ELogLevel level, std::wstring_view line, const spdlog::source_loc& where)
  {
    const std::string text = kelda::ToUtf8(line);
    std::shared_ptr<const SinkList> extra;
    {
      const std::lock_guard guard(lock);
      output.log(where, ToSpdlog(level), spdlog::string_view_t(text));
      extra = extraSinks;
    }
    for (const auto& sink : *extra)
      sink->write(level, line);
  }
};

CKeldaLogger& CKeldaLogger::instance()
{
  static CKeldaLogger logger;
  return logger;
}

CKeldaLogger::CKeldaLogger() : m_impl(std::make_unique<Impl>())
{
  m_impl->level = static_cast<int>(LevelFromEnvironment());
  m_impl->output.set_level(spdlog::level::trace);
  m_impl->output.flush_on(spdlog::level::trace);
  m_impl->stderrSink = Impl::Prepare(std::make_shared<spdlog::sinks::stderr_sink_st>());
  m_impl->RebuildSinks();
}

CKeldaLogger::~CKeldaLogger() = default;

ELogLevel CKeldaLogger::level() const noexcept { return static_cast<ELogLevel>(m_impl->level.load()); }

void CKeldaLogger::setLevel(ELogLevel level) noexcept { m_impl->level = static_cast<int>(level); }

void CKeldaLogger::writeImpl(ELogLevel level, std::wstring_view line)
{
  if (m_impl->Enabled(level))
    m_impl->Write(level, line, {});
}

void CKeldaLogger::writeExceptionImpl(ELogLevel level, const std::exception& error, const char* function,
                                      const char* file, int lineNumber, bool withDetails, std::wstring_view line)
{
  if (!m_impl->Enabled(level))
    return;
  std::wstring text(line);
  text += L": ";
  text += get_description(error);
  text += L" (";
  text += kelda::FromUtf8(Hex(get_hresult(error)));
  text += L")";
  if (withDetails)
  {
    if (const auto* kelda = dynamic_cast<const CKeldaException*>(&error); kelda != nullptr && !kelda->detail().empty())
    {
      text += L" ";
      text += kelda->detail();
    }
    const std::string thrower = get_throw_function(error);
    if (!thrower.empty())
    {
      text += L" [thrown in ";
      text += kelda::FromUtf8(thrower);
      text += L" at ";
      text += kelda::FromUtf8(get_throw_file(error));
      text += L":";
      text += std::to_wstring(get_throw_line(error));
      text += L"]";
    }
  }
  m_impl->Write(level, text, spdlog::source_loc{file, lineNumber, function});
}

void CKeldaLogger::useStderr(bool enabled)
{
  const std::lock_guard guard(m_impl->lock);
  if (enabled && !m_impl->stderrSink)
    m_impl->stderrSink = Impl::Prepare(std::make_shared<spdlog::sinks::stderr_sink_st>());
  else if (!enabled)
    m_impl->stderrSink.reset();
  m_impl->RebuildSinks();
}

void CKeldaLogger::useFile(const std::string& path)
{
  spdlog::sink_ptr sink;
  if (!path.empty())
  {
    try
    {
      sink = Impl::Prepare(std::make_shared<spdlog::sinks::basic_file_sink_st>(path));
    }
    catch (const std::exception& error)
    {
      KELDA_THROW(CHResultException(E_FAIL, kelda::FromUtf8("Can not open the log file '" + path + "': " + error.what())));
    }
  }
  const std::lock_guard guard(m_impl->lock);
  m_impl->fileSink = std::move(sink);
  m_impl->RebuildSinks();
}

void CKeldaLogger::addSink(std::shared_ptr<ILogSink> sink)
{
  if (!sink)
    return;
  const std::lock_guard guard(m_impl->lock);
  auto sinks = std::make_shared<SinkList>(*m_impl->extraSinks);
  sinks->push_back(std::move(sink));
  m_impl->extraSinks = std::move(sinks);
}

void CKeldaLogger::removeSink(const std::shared_ptr<ILogSink>& sink)
{
  const std::lock_guard guard(m_impl->lock);
  auto sinks = std::make_shared<SinkList>(*m_impl->extraSinks);
  std::erase(*sinks, sink);
  m_impl->extraSinks = std::move(sinks);
}
