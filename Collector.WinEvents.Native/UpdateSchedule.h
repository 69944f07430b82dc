// Pure arithmetic of the update schedule: the stored update period and the delay before the
// next update. Updates start at whole-second offsets, so the delay is rounded to whole seconds.
#pragma once

#include "KeldaKernel/OleDateTime.h"

#include <cstdint>

namespace collector::ni::impl
{
// A period of `seconds`, as a span of days. A span beyond +-COleDateTimeSpan::maxDays keeps its
// value but is marked invalid.
COleDateTimeSpan MakeUpdatePeriod(double seconds) noexcept;

// Milliseconds from `now` until the next update, for an update that started at `start`:
// max(0, period - elapsed) rounded to the nearest whole second (half a second rounds up).
// Elapsed time follows the OLE rule for dates before 1899-12-30; it is 0 when `start` is not
// a valid date (the update failed before it began).
std::int64_t ComputeUpdateDelayMs(const COleDateTimeSpan& period, const COleDateTimeEx& start,
                                  const COleDateTimeEx& now) noexcept;
} // namespace collector::ni::impl
