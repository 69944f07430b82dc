// Windows body of WriteFileAtomically: write the temporary, FlushFileBuffers, then MoveFileExW
// with MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH, which returns only once the move is on
// the disk: https://learn.microsoft.com/en-us/windows/win32/api/winbase/nf-winbase-movefileexw
#include "run/AtomicFile.h"

#include "run/StateFile.h"

#include <windows.h>

#include <filesystem>
#include <algorithm>
#include <limits>
#include <system_error>

namespace natc::run
{
namespace
{
// Closes a file handle on every path.
class CFileHandle
{
public:
  explicit CFileHandle(HANDLE handle) noexcept : m_handle(handle) {}
  ~CFileHandle()
  {
    if (m_handle != INVALID_HANDLE_VALUE)
      CloseHandle(m_handle);
  }
  CFileHandle(const CFileHandle&) = delete;
  CFileHandle& operator=(const CFileHandle&) = delete;
  HANDLE get() const noexcept { return m_handle; }

private:
  HANDLE m_handle;
};

[[noreturn]] void Fail(const std::string& what, const std::string& path)
{
  const auto code = static_cast<int>(GetLastError());
  throw CStateError(path + ": " + what + ": " + std::system_category().message(code));
}
} // namespace

void WriteFileAtomically(const std::string& path, std::string_view contents)
{
  const std::string temporary = path + ".tmp";
  const std::wstring wideTemporary = std::filesystem::path(temporary).wstring();
  {
    const CFileHandle file(CreateFileW(wideTemporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.get() == INVALID_HANDLE_VALUE)
      Fail("cannot be written", temporary);
    for (std::size_t written = 0; written < contents.size();)
    {
      const auto chunk = static_cast<DWORD>(
        std::min<std::size_t>(contents.size() - written, std::numeric_limits<DWORD>::max()));
      DWORD now = 0;
      if (!WriteFile(file.get(), contents.data() + written, chunk, &now, nullptr) || now == 0)
        Fail("cannot be written", temporary);
      written += now;
    }
    // The contents reach the disk before the name does: a crash leaves the old or the new file.
    if (!FlushFileBuffers(file.get()))
      Fail("cannot be synced", temporary);
  }
  if (!MoveFileExW(wideTemporary.c_str(), std::filesystem::path(path).wstring().c_str(),
                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    Fail("cannot replace the state file", path);
}
} // namespace natc::run
