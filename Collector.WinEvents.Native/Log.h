// The library's logging front end. Each owner holds a shared CLog whose prefix names where a
// line comes from ("[NatC]", "[C:host:name]"); a child logger extends its parent's prefix.
// Lines go to the process-wide CKeldaLogger. Every call is a cooperative interruption point and
// leaves the thread's last-error code as it found it, so it may sit between a failing Windows
// call and its GetLastError. Format the message first, then hand it over:
//   log->Info(fmt::format(L"New state: {}", word));
#pragma once

#include "KeldaKernel/Strings.h"

#include <exception>
#include <memory>
#include <string_view>

class CLog
{
public:
  // The prefix is the parent's prefix immediately followed by `prefix` (no separator).
  CLog(const std::shared_ptr<CLog>& parent, std::wstring_view prefix);

  void Debug(std::wstring_view message);
  void Info(std::wstring_view message);
  // Writes the message with the exception's text and code. Never throws: a pending
  // interruption stays pending (the token remains cancelled) for the caller's next test.
  void Error(const std::exception& error, std::wstring_view message) noexcept;

  const tstring& Prefix() const noexcept { return m_prefix; }

private:
  const tstring m_prefix;
};
