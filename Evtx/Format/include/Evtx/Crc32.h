// CRC32 (IEEE 802.3, the zlib polynomial) used by .evtx headers and record areas.
#pragma once

#include <cstddef>
#include <cstdint>

namespace evtx
{
// Continues a CRC32 over more bytes; start with crc = 0.
std::uint32_t Crc32(const void* data, std::size_t size, std::uint32_t crc = 0) noexcept;
} // namespace evtx
