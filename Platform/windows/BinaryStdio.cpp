// Puts the standard streams of a Windows program into binary mode before main runs, so that
// "\n" is written as one byte, as on Linux (the C runtime's text mode would write CR LF).
// Linked into executables only: a DLL must not change its host's streams.
#include <fcntl.h>
#include <io.h>

#include <cstdio>

namespace
{
const bool binaryStdio = [] {
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
  return true;
}();
} // namespace
