// The kernel exception family and the readers that treat any std::exception uniformly.
#include "KeldaKernel/Exceptions.h"

#include <boost/exception/get_error_info.hpp>
#include <cstdio>
#include <mutex>
#include <new>

CKeldaException::CKeldaException(tstring message) : m_message(std::move(message)) {}

CKeldaException::CKeldaException(init_t, tstring message, tstring detail, int flags)
  : m_message(std::move(message)), m_detail(std::move(detail)), m_flags(flags)
{
}

const char* CKeldaException::what() const noexcept
{
  // An exception may be read from several threads (through a shared future), and the
  // text is built on first use because description() is virtual.
  static std::mutex lock;
  try
  {
    const std::lock_guard guard(lock);
    if (m_what.empty())
      m_what = kelda::ToUtf8(description());
    return m_what.c_str();
  }
  catch (...)
  {
    return "CKeldaException";
  }
}

tstring CKeldaException::description() const
{
  return m_message.empty() ? get_hresult_text(hresult()) : m_message;
}

// The checker takes base initialisers of exception classes for exceptions never thrown.
// NOLINTNEXTLINE(bugprone-throw-keyword-missing)
CHResultException::CHResultException(HRESULT hr, tstring message) : CKeldaException(std::move(message)), m_hr(hr) {}

CWin32Exception::CWin32Exception(DWORD error, tstring message)
  // NOLINTNEXTLINE(bugprone-throw-keyword-missing)
  : CHResultException(HRESULT_FROM_WIN32(error), std::move(message)), m_error(error)
{
}

// NOLINTNEXTLINE(bugprone-throw-keyword-missing)
CInterruptedException::CInterruptedException() : CKeldaException(L"Interrupted") {}

HRESULT get_hresult(const std::exception& error) noexcept
{
  if (const auto* kelda = dynamic_cast<const CKeldaException*>(&error))
    return kelda->hresult();
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr)
    return E_OUTOFMEMORY;
  return E_FAIL;
}

tstring get_description(const std::exception& error)
{
  if (const auto* kelda = dynamic_cast<const CKeldaException*>(&error))
    return kelda->description();
  return kelda::FromUtf8(error.what());
}

namespace
{
struct CodeText
{
  std::uint32_t code;
  const wchar_t* text;
};

// The system's message texts for the Win32 codes this library meets (FormatMessage wording,
// inserts left as they are, trailing line break dropped).
constexpr CodeText win32Texts[] = {
  {0, L"The operation completed successfully."},
  {1, L"Incorrect function."},
  {2, L"The system cannot find the file specified."},
  {3, L"The system cannot find the path specified."},
  {5, L"Access is denied."},
  {6, L"The handle is invalid."},
  {8, L"Not enough memory resources are available to process this command."},
  {13, L"The data is invalid."},
  {14, L"Not enough memory resources are available to complete this operation."},
  {50, L"The request is not supported."},
  {53, L"The network path was not found."},
  {87, L"The parameter is incorrect."},
  {122, L"The data area passed to a system call is too small."},
  {259, L"No more data is available."},
  {995, L"The I/O operation has been aborted because of either a thread exit or an application request."},
  {1223, L"The operation was canceled by the user."},
  {1326, L"The user name or password is incorrect."},
  {1332, L"No mapping between account names and security IDs was done."},
  {1337, L"The security ID structure is invalid."},
  {1460, L"This operation returned because the timeout period expired."},
  {1722, L"The RPC server is unavailable."},
  {1753, L"There are no more endpoints available from the endpoint mapper."},
  // Event Log API (ERROR_EVT_*).
  {15000, L"The specified channel path is invalid."},
  {15001, L"The specified query is invalid."},
  {15002, L"The publisher metadata cannot be found in the resource."},
  {15003, L"The template for an event definition cannot be found in the resource (error = %1)."},
  {15004, L"The specified publisher name is invalid."},
  {15005, L"The event data raised by the publisher is not compatible with the event template definition in the "
          L"publisher's manifest."},
  {15007, L"The specified channel could not be found."},
  {15008, L"The specified XML text was not well-formed. See Extended Error for more details."},
  {15011, L"The query result is stale or invalid and must be recreated. This may be due to the log being cleared "
          L"or rolling over after the query result was created."},
  {15012, L"The query result is currently at an invalid position."},
  {15027, L"The message resource is present but the message was not found in the message table."},
  {15028, L"The message ID for the desired message could not be found."},
  {15029, L"The substitution string for insert index (%1) could not be found."},
  {15030, L"The description string for parameter reference (%1) could not be found."},
  {15031, L"The maximum number of replacements has been reached."},
  {15032, L"The event definition could not be found for event ID (%1)."},
};

// HRESULTs that are not wrapped Win32 codes.
constexpr CodeText hresultTexts[] = {
  {0x80004001u, L"Not implemented"},
  {0x80004002u, L"No such interface supported"},
  {0x80004003u, L"Invalid pointer"},
  {0x80004004u, L"Operation aborted"},
  {0x80004005u, L"Unspecified error"},
  {0x8000FFFFu, L"Catastrophic failure"},
};

template <std::size_t N>
const wchar_t* Find(const CodeText (&table)[N], std::uint32_t code)
{
  for (const auto& entry : table)
    if (entry.code == code)
      return entry.text;
  return nullptr;
}
} // namespace

tstring get_hresult_text(HRESULT hr)
{
  const auto code = static_cast<std::uint32_t>(hr);
  const wchar_t* text = nullptr;
  // 0x8007xxxx carries a Win32 code; small positive values are Win32 codes themselves.
  if ((code & 0xFFFF0000u) == 0x80070000u)
    text = Find(win32Texts, code & 0xFFFFu);
  else if (code < 0x10000u)
    text = Find(win32Texts, code);
  else
    text = Find(hresultTexts, code);
  if (text != nullptr)
    return text;
  wchar_t buffer[32];
  std::swprintf(buffer, std::size(buffer), L"Unknown error 0x%08X", code);
  return buffer;
}

namespace
{
template <class Tag>
auto GetInfo(const std::exception& error) -> decltype(boost::get_error_info<Tag>(std::declval<const boost::exception&>()))
{
  const auto* info = dynamic_cast<const boost::exception*>(&error);
  return info == nullptr ? nullptr : boost::get_error_info<Tag>(*info);
}
} // namespace

std::string get_throw_function(const std::exception& error)
{
  const auto* value = GetInfo<boost::throw_function>(error);
  return value == nullptr || *value == nullptr ? std::string() : std::string(*value);
}

std::string get_throw_file(const std::exception& error)
{
  const auto* value = GetInfo<boost::throw_file>(error);
  return value == nullptr || *value == nullptr ? std::string() : std::string(*value);
}

int get_throw_line(const std::exception& error)
{
  const auto* value = GetInfo<boost::throw_line>(error);
  return value == nullptr ? 0 : *value;
}
