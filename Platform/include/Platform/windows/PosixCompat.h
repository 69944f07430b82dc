// The few POSIX calls the portable file and stream code uses, for the MinGW-w64 build, where the
// C runtime lacks them. The Windows build force-includes this header into every source
// (cmake/windows/Windows.cmake), so shared code keeps its POSIX spelling.
#pragma once

#ifdef __cplusplus
#  include <cstdio>
#  include <cstddef>
#else
#  include <stdio.h>
#  include <stddef.h>
#endif
#include <fcntl.h>
#include <io.h>
#include <sys/types.h>
#include <signal.h>

// Every file this code opens holds binary records: text mode would translate CR LF. Not being
// inherited by child processes is what O_CLOEXEC asks for.
#ifndef O_CLOEXEC
#  define O_CLOEXEC (_O_NOINHERIT | _O_BINARY)
#endif

#ifndef NATC_SIGSET_DEFINED
#  define NATC_SIGSET_DEFINED
typedef _sigset_t sigset_t;
#endif

#ifdef __cplusplus
extern "C" {
#endif
// pread/pwrite at an absolute offset, through the descriptor's handle (no shared file position).
ssize_t natc_pread(int fd, void* buffer, size_t size, long long offset);
ssize_t natc_pwrite(int fd, const void* buffer, size_t size, long long offset);
#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
inline ssize_t pread(int fd, void* buffer, size_t size, long long offset) { return natc_pread(fd, buffer, size, offset); }
inline ssize_t pwrite(int fd, const void* buffer, size_t size, long long offset)
{
  return natc_pwrite(fd, buffer, size, offset);
}
inline void flockfile(FILE* stream) { _lock_file(stream); }
inline void funlockfile(FILE* stream) { _unlock_file(stream); }
#endif
