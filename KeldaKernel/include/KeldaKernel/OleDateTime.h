// OLE automation date-time: days since 1899-12-30 00:00 as a double (the fraction is the time
// of day), with a status (valid, invalid, null). Negative values count days before 1899-12-30
// with a positive time fraction, so arithmetic first maps them onto a continuous line.
// COleDateTimeSpan is a signed span in days with its own status.
#pragma once

#include "Platform/Windows.h"

class COleDateTimeSpan
{
public:
  enum DateTimeSpanStatus
  {
    valid = 0,
    invalid = 1,
    null = 2,
  };

  COleDateTimeSpan() noexcept = default;
  explicit COleDateTimeSpan(double days) noexcept;
  COleDateTimeSpan(long days, int hours, int minutes, int seconds) noexcept;

  double GetTotalDays() const noexcept { return m_span; }
  double GetTotalSeconds() const noexcept;
  DateTimeSpanStatus GetStatus() const noexcept { return m_status; }
  void SetStatus(DateTimeSpanStatus status) noexcept { m_status = status; }

  COleDateTimeSpan operator-(const COleDateTimeSpan& other) const noexcept;
  COleDateTimeSpan operator+(const COleDateTimeSpan& other) const noexcept;
  bool operator==(const COleDateTimeSpan& other) const noexcept = default;

  // Spans beyond this many days are not representable as dates.
  static constexpr double maxDays = 3615897.0;

private:
  double m_span = 0.0;
  DateTimeSpanStatus m_status = valid;
};

class COleDateTimeEx
{
public:
  enum DateTimeStatus
  {
    valid = 0,
    invalid = 1,
    null = 2,
  };

  // 0.0 (1899-12-30 00:00), valid.
  COleDateTimeEx() noexcept = default;
  explicit COleDateTimeEx(double date) noexcept;
  // From a UTC SYSTEMTIME, milliseconds included; invalid when a field is out of range.
  explicit COleDateTimeEx(const SYSTEMTIME& time) noexcept;
  // From a FILETIME (100 ns since 1601-01-01 UTC), sub-millisecond parts rounded to milliseconds.
  explicit COleDateTimeEx(const FILETIME& time) noexcept;
  COleDateTimeEx(int year, int month, int day, int hour, int minute, int second) noexcept;

  static COleDateTimeEx GetCurrentUtcTime() noexcept;
  // Whole-day, hour, minute, second and millisecond fields to an OLE date; false when invalid.
  static bool SystemTimeToVariantTimeWithMilliseconds(const SYSTEMTIME& time, double* date) noexcept;
  // The inverse, rounding to the nearest millisecond; false when the date is out of range.
  static bool VariantTimeToSystemTimeWithMilliseconds(double date, SYSTEMTIME* time) noexcept;

  DateTimeStatus GetStatus() const noexcept { return m_status; }
  void SetStatus(DateTimeStatus status) noexcept { m_status = status; }
  double GetDate() const noexcept { return m_dt; }
  operator double() const noexcept { return m_dt; }
  bool GetAsSystemTime(SYSTEMTIME& time) const noexcept;

  // Date arithmetic on the continuous line (negative dates mapped first).
  COleDateTimeEx operator+(const COleDateTimeSpan& span) const noexcept;
  COleDateTimeEx operator-(const COleDateTimeSpan& span) const noexcept;
  COleDateTimeSpan operator-(const COleDateTimeEx& other) const noexcept;
  bool operator==(const COleDateTimeEx& other) const noexcept = default;

  // The continuous-line value of an OLE date and back; for values at or below minus half a
  // second the fraction is mirrored around the day boundary.
  static double DoubleFromDate(double date) noexcept;
  static double DateFromDouble(double value) noexcept;

private:
  double m_dt = 0.0;
  DateTimeStatus m_status = valid;
};
