// pread/pwrite for the MinGW-w64 build: ReadFile/WriteFile with an OVERLAPPED offset on the
// descriptor's handle, which leaves the descriptor's own position alone, as POSIX requires.
#include "Platform/windows/PosixCompat.h"

#include <windows.h>

#include <cerrno>
#include <climits>

namespace
{
OVERLAPPED At(long long offset)
{
  OVERLAPPED overlapped{};
  overlapped.Offset = static_cast<DWORD>(static_cast<unsigned long long>(offset) & 0xFFFFFFFFu);
  overlapped.OffsetHigh = static_cast<DWORD>(static_cast<unsigned long long>(offset) >> 32);
  return overlapped;
}

HANDLE HandleOf(int fd)
{
  return reinterpret_cast<HANDLE>(_get_osfhandle(fd));
}

// One ReadFile or WriteFile at `offset` (at most 1 GiB, as a POSIX call may do less than asked).
template <class Transfer>
ssize_t AtOffset(int fd, long long offset, size_t size, Transfer transfer)
{
  const HANDLE handle = HandleOf(fd);
  if (handle == INVALID_HANDLE_VALUE || offset < 0)
  {
    errno = EBADF;
    return -1;
  }
  OVERLAPPED overlapped = At(offset);
  DWORD done = 0;
  const DWORD chunk = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
  if (!transfer(handle, chunk, &done, &overlapped))
  {
    // Reading at or past the end is no error: zero bytes, as pread gives.
    if (GetLastError() == ERROR_HANDLE_EOF)
      return 0;
    errno = EIO;
    return -1;
  }
  return static_cast<ssize_t>(done);
}
} // namespace

extern "C" ssize_t natc_pread(int fd, void* buffer, size_t size, long long offset)
{
  return AtOffset(fd, offset, size, [buffer](HANDLE handle, DWORD chunk, DWORD* done, OVERLAPPED* at) {
    return ReadFile(handle, buffer, chunk, done, at);
  });
}

extern "C" ssize_t natc_pwrite(int fd, const void* buffer, size_t size, long long offset)
{
  return AtOffset(fd, offset, size, [buffer](HANDLE handle, DWORD chunk, DWORD* done, OVERLAPPED* at) {
    return WriteFile(handle, buffer, chunk, done, at);
  });
}
