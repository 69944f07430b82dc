#include "Log.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Logger.h"
#include "Platform/Windows.h"

#include <boost/current_function.hpp>
#include <fmt/xchar.h>

namespace
{
bool IsEnabled(ELogLevel level)
{
  return static_cast<int>(level) >= static_cast<int>(CKeldaLogger::instance().level());
}

tstring JoinPrefix(const std::shared_ptr<CLog>& parent, std::wstring_view prefix)
{
  if (!parent)
  {
    return tstring(prefix);
  }
  tstring joined = parent->Prefix();
  joined.append(prefix);
  return joined;
}

// Puts the thread's last-error code back however the write ends.
class CLastErrorGuard
{
public:
  CLastErrorGuard() noexcept : m_saved(GetLastError()) {}
  ~CLastErrorGuard() { RestoreLastError(m_saved); }
  CLastErrorGuard(const CLastErrorGuard&) = delete;
  CLastErrorGuard& operator=(const CLastErrorGuard&) = delete;

private:
  DWORD m_saved;
};

// Writes one plain line. Failures of the std::exception kind are dropped: a log line must
// never change what the caller does.
void WriteLine(ELogLevel level, const tstring& prefix, std::wstring_view message)
{
  try
  {
    if (IsEnabled(level))
    {
      const CLastErrorGuard lastError;
      const tstring line = fmt::format(L"{} {}", prefix, message);
      CKeldaLogger::instance().writeImpl(level, line);
    }
  }
  catch (const std::exception&)
  {
  }
}
} // namespace

CLog::CLog(const std::shared_ptr<CLog>& parent, std::wstring_view prefix) : m_prefix(JoinPrefix(parent, prefix))
{
}

void CLog::Debug(std::wstring_view message)
{
  WriteLine(ELogLevel::Debug, m_prefix, message);
  interruption_point();
}

void CLog::Info(std::wstring_view message)
{
  WriteLine(ELogLevel::Info, m_prefix, message);
  interruption_point();
}

void CLog::Error(const std::exception& error, std::wstring_view message) noexcept
{
  try
  {
    if (IsEnabled(ELogLevel::Error))
    {
      const CLastErrorGuard lastError;
      const tstring line = fmt::format(L"{} {}", m_prefix, message);
      CKeldaLogger::instance().writeExceptionImpl(ELogLevel::Error, error, BOOST_CURRENT_FUNCTION, __FILE__, __LINE__,
                                                  true, line);
    }
  }
  catch (...)
  {
  }
  // Error is called from handlers that must not throw; a cancelled token stays cancelled, so
  // the interruption is raised again at the caller's next interruption point.
  try
  {
    interruption_point();
  }
  catch (...)
  {
  }
}
