// The text form of event times ("2024-05-01T10:20:30.1234567Z", as in TimeCreated/@SystemTime)
// to FILETIME ticks (100 ns since 1601-01-01 UTC), for timediff().
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace evtx::query
{
std::optional<std::uint64_t> ParseSystemTime(std::wstring_view text);
} // namespace evtx::query
