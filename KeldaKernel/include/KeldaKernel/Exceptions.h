// The kernel's exception family. Every failure the library raises is one of these, carrying
// a wide message, an HRESULT and the throw location (function signature, file, line) in its
// boost::exception part. Throw them with KELDA_THROW so the location is attached:
//   KELDA_THROW(CHResultException(E_INVALIDARG, L"Host name can not be empty"));
// get_hresult / get_description read any std::exception uniformly.
#pragma once

#include "KeldaKernel/Strings.h"
#include "Platform/Windows.h"

#include <boost/current_function.hpp>
#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <exception>
#include <string>

class CKeldaException : public virtual std::exception, public virtual boost::exception
{
public:
  explicit CKeldaException(tstring message);
  // UTF-8 form of description().
  const char* what() const noexcept override;
  const tstring& message() const noexcept { return m_message; }
  // Extra text and flags a subclass gave for the logger (empty / 0 for most failures).
  const tstring& detail() const noexcept { return m_detail; }
  int flags() const noexcept { return m_flags; }
  // The HRESULT the failure stands for; E_FAIL unless a subclass says otherwise.
  virtual HRESULT hresult() const noexcept { return E_FAIL; }
  // The text shown to people: the message, or the system's text for the HRESULT when empty.
  virtual tstring description() const;

protected:
  struct init_t
  {
  };
  // For subclasses that build their message themselves; `detail` and `flags` are kept
  // for the logger's rendering of the exception.
  CKeldaException(init_t, tstring message, tstring detail, int flags);

private:
  tstring m_message;
  tstring m_detail;
  int m_flags = 0;
  mutable std::string m_what;
};

// A failure that stands for an HRESULT.
class CHResultException : public CKeldaException
{
public:
  explicit CHResultException(HRESULT hr, tstring message = {});
  HRESULT hresult() const noexcept override { return m_hr; }

private:
  HRESULT m_hr;
};

// A failed Windows call: the Win32 error code (usually GetLastError()).
class CWin32Exception : public CHResultException
{
public:
  explicit CWin32Exception(DWORD error, tstring message = {});
  DWORD error() const noexcept { return m_error; }

private:
  DWORD m_error;
};

// Cooperative cancellation reached an interruption point or a cancelled token was tested.
class CInterruptedException : public CKeldaException
{
public:
  CInterruptedException();
  HRESULT hresult() const noexcept override { return HRESULT_FROM_WIN32(ERROR_CANCELLED); }
};

// HRESULT of any exception: the kernel family's own, E_OUTOFMEMORY for bad_alloc, else E_FAIL.
HRESULT get_hresult(const std::exception& error) noexcept;
// Human-readable text of any exception (the kernel family's description, else what()).
tstring get_description(const std::exception& error);
// The system's text for an HRESULT ("Not implemented", "The parameter is incorrect." ...).
tstring get_hresult_text(HRESULT hr);
// Throw location recorded by KELDA_THROW, or empty / 0 when none.
std::string get_throw_function(const std::exception& error);
std::string get_throw_file(const std::exception& error);
int get_throw_line(const std::exception& error);

namespace kelda::detail
{
template <class E>
E&& WithLocation(E&& error, const char* function, const char* file, int line)
{
  error << boost::throw_function(function) << boost::throw_file(file) << boost::throw_line(line);
  return std::forward<E>(error);
}
} // namespace kelda::detail

#define KELDA_THROW(error) \
  throw ::kelda::detail::WithLocation((error), BOOST_CURRENT_FUNCTION, __FILE__, __LINE__)
