// DMTF date-time text, the form WQL literals give date-times in:
//   timestamp "yyyymmddHHMMSS.mmmmmmsUUU" (s is + or -, UUU the UTC offset in minutes)
//   interval  "ddddddddHHMMSS.mmmmmm:000"
// and an ordering key so that timestamps compare in UTC and intervals by length.
#pragma once

#include "Cim/Model.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace cim::wql
{
std::optional<DateTime> ParseDmtf(std::wstring_view text);

struct DateTimeKey
{
  bool isTimestamp = true;
  __int128 microseconds = 0; // since 0000-03-01 UTC for timestamps; the length for intervals
};
DateTimeKey KeyOf(const DateTime& value);
} // namespace cim::wql
