// Pure conversions from the texts of a rendered event to the values of its record:
//   EventTypeFromLevel(_wtoi(Level))    1 and 2 -> 1, 3 -> 2, anything else -> 3
//   MakeInternalId(qualifiers, eventId) (qualifiers << 16) | eventId
//   ParseEventTime(L"2024-05-01T10:20:30.1234567Z") -> 10:20:30.123 UTC; invalid unless the
//     text yields all six items of "%hd-%hd-%hdT%hd:%hd:%lfZ" as swscanf reads them.
#pragma once

#include "KeldaKernel/OleDateTime.h"
#include "Platform/Windows.h"

#include <string_view>

namespace collector::ni::impl
{
// EventType of a record from the event's numeric level.
int EventTypeFromLevel(int level) noexcept;

// The record's identity: the qualifiers above the 16 bits of the event identifier.
__int64 MakeInternalId(__int64 qualifiers, __int64 eventId) noexcept;

// What swscanf(text, L"%hd-%hd-%hdT%hd:%hd:%lfZ", ...) stores and returns.
struct SScannedEventTime
{
  short Year = 0;
  short Month = 0;
  short Day = 0;
  short Hour = 0;
  short Minute = 0;
  double Seconds = 0.0;
  // Items converted before the first mismatch (0 to 6).
  int Items = 0;
};
SScannedEventTime ScanEventTime(std::wstring_view text);

// The "SystemTime" text as a UTC date-time: whole seconds truncated, milliseconds
// round(fraction * 1000) added to them (1000 ms is the next second). Status invalid (1) unless
// six items were read or when the fields do not form a date-time.
COleDateTimeEx ParseEventTime(std::wstring_view text);
} // namespace collector::ni::impl
