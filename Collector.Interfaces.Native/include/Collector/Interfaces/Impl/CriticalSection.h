// An owned Windows critical section (recursive) that satisfies the standard Lockable names, so
// that it is always entered through RAII: std::lock_guard guard(section);
#pragma once

#include "KeldaKernel/Exceptions.h"
#include "Platform/Windows.h"

namespace collector::ni::impl
{
class CCriticalSection
{
public:
  // Spin count 0, no flags; a failure throws the last Win32 error as an HRESULT.
  CCriticalSection()
  {
    if (!InitializeCriticalSectionEx(&m_section, 0, 0))
      KELDA_THROW(CHResultException(HRESULT_FROM_WIN32(GetLastError())));
  }
  ~CCriticalSection() { DeleteCriticalSection(&m_section); }
  CCriticalSection(const CCriticalSection&) = delete;
  CCriticalSection& operator=(const CCriticalSection&) = delete;

  void lock() noexcept { EnterCriticalSection(&m_section); }
  bool try_lock() noexcept { return TryEnterCriticalSection(&m_section) != FALSE; }
  void unlock() noexcept { LeaveCriticalSection(&m_section); }

private:
  CRITICAL_SECTION m_section{};
};
} // namespace collector::ni::impl
