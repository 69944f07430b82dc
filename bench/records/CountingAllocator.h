// Counts heap allocations made through operator new in this benchmark binary, so that a
// benchmark can report allocations per iteration.
#pragma once

#include <cstdint>

namespace bench
{
std::uint64_t AllocationCount() noexcept;
} // namespace bench
