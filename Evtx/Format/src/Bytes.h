// Little-endian loads from byte buffers (the .evtx format is little-endian throughout).
#pragma once

#include <cstdint>
#include <cstring>

namespace evtx::detail
{
inline std::uint16_t Le16(const std::uint8_t* p) noexcept
{
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t Le32(const std::uint8_t* p) noexcept
{
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}
inline std::uint64_t Le64(const std::uint8_t* p) noexcept
{
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}
} // namespace evtx::detail
