// CRC32 for the header and record-area checks that run on every chunk load: libdeflate's
// carry-less-multiply loop where the build found it, else zlib's table-braided one.
#include "Evtx/Crc32.h"

#ifdef NATC_HAVE_LIBDEFLATE
#  include <libdeflate.h>
#else
#  include <zlib.h>
#endif

#include <algorithm>
#include <limits>

namespace evtx
{
std::uint32_t Crc32(const void* data, std::size_t size, std::uint32_t crc) noexcept
{
#ifdef NATC_HAVE_LIBDEFLATE
  return libdeflate_crc32(crc, data, size);
#else
  const auto* bytes = static_cast<const Bytef*>(data);
  // zlib takes a 32-bit length; feed larger inputs in pieces.
  while (size > 0)
  {
    const std::size_t piece = std::min<std::size_t>(size, std::numeric_limits<uInt>::max());
    crc = static_cast<std::uint32_t>(::crc32(crc, bytes, static_cast<uInt>(piece)));
    bytes += piece;
    size -= piece;
  }
  return crc;
#endif
}
} // namespace evtx
