#include "UpdateSchedule.h"

#include <algorithm>
#include <cmath>

namespace collector::ni::impl
{
namespace
{
constexpr double secondsPerDay = 86400.0;
constexpr double millisecondsPerDay = 86400000.0;
// Far beyond any representable period (3615897 days); keeps the conversion to integer defined.
constexpr double maxDelayMs = 1e17;
} // namespace

COleDateTimeSpan MakeUpdatePeriod(double seconds) noexcept
{
  COleDateTimeSpan period(seconds / secondsPerDay);
  if (std::fabs(period.GetTotalDays()) > COleDateTimeSpan::maxDays)
  {
    period.SetStatus(COleDateTimeSpan::invalid);
  }
  return period;
}

std::int64_t ComputeUpdateDelayMs(const COleDateTimeSpan& period, const COleDateTimeEx& start,
                                  const COleDateTimeEx& now) noexcept
{
  double elapsedDays = 0.0;
  if (start.GetStatus() == COleDateTimeEx::valid && now.GetStatus() == COleDateTimeEx::valid)
  {
    elapsedDays = COleDateTimeEx::DoubleFromDate(now.GetDate()) - COleDateTimeEx::DoubleFromDate(start.GetDate());
  }
  const double delayDays = std::max(0.0, period.GetTotalDays() - elapsedDays);
  // Dates carry milliseconds: settle on whole milliseconds first so that a remaining 0.5 s
  // computed as 0.49999 s from two dates still rounds up.
  const auto delayMs = static_cast<std::int64_t>(std::llround(std::min(delayDays * millisecondsPerDay, maxDelayMs)));
  const std::int64_t wholeSeconds = (delayMs + 500) / 1000;
  return wholeSeconds * 1000;
}
} // namespace collector::ni::impl
