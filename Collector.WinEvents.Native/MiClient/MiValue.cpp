#include "MiValue.h"

#include <cmath>
#include <cwctype>
#include <limits>

COleDateTimeEx MiDatetimeToOleDateTime(const MI_Datetime& value) noexcept
{
  if (value.isTimestamp == 0)
  {
    // An interval is a length of time: its day number counts days from the epoch.
    const MI_Interval& interval = value.u.interval;
    const double days = static_cast<double>(interval.days) + static_cast<double>(interval.hours) / 24.0 +
                        static_cast<double>(interval.minutes) / 1440.0 +
                        static_cast<double>(interval.seconds) / 86400.0;
    return COleDateTimeEx(days);
  }

  const MI_Timestamp& stamp = value.u.timestamp;
  SYSTEMTIME time{};
  time.wYear = static_cast<WORD>(stamp.year);
  time.wMonth = static_cast<WORD>(stamp.month);
  time.wDayOfWeek = 0;
  time.wDay = static_cast<WORD>(stamp.day);
  time.wHour = static_cast<WORD>(stamp.hour);
  time.wMinute = static_cast<WORD>(stamp.minute);
  time.wSecond = static_cast<WORD>(stamp.second);
  time.wMilliseconds = static_cast<WORD>(stamp.microseconds / 1000);
  double date = 0.0;
  if (!COleDateTimeEx::SystemTimeToVariantTimeWithMilliseconds(time, &date))
  {
    COleDateTimeEx invalid;
    invalid.SetStatus(COleDateTimeEx::invalid);
    return invalid;
  }
  // The offset is minutes east of UTC: subtracting it gives UTC (date arithmetic handles days
  // before the epoch).
  return COleDateTimeEx(date) - COleDateTimeSpan(0, 0, stamp.utc, 0);
}

__int64 TruncateReal(double value) noexcept
{
  // 2^63 is exact in a double; the valid range is [-2^63, 2^63).
  constexpr double limit = 9223372036854775808.0;
  if (std::isnan(value) || value >= limit || value < -limit)
  {
    return std::numeric_limits<__int64>::min();
  }
  return static_cast<__int64>(value);
}

namespace
{
bool EqualsNoCase(const MI_Char* left, std::wstring_view right) noexcept
{
  if (left == nullptr)
  {
    return false;
  }
  const std::wstring_view name(left);
  if (name.size() != right.size())
  {
    return false;
  }
  for (std::size_t i = 0; i < name.size(); ++i)
  {
    if (std::towlower(static_cast<wint_t>(name[i])) != std::towlower(static_cast<wint_t>(right[i])))
    {
      return false;
    }
  }
  return true;
}
} // namespace

std::size_t CMiValueWithQualifiers::GetQualifierCount() const noexcept
{
  const MI_PropertyDecl* decl = GetPropertyDecl();
  return decl != nullptr && decl->qualifiers != nullptr ? decl->numQualifiers : 0;
}

const MI_Qualifier* CMiValueWithQualifiers::GetQualifier(std::size_t index) const noexcept
{
  if (index >= GetQualifierCount())
  {
    return nullptr;
  }
  return GetPropertyDecl()->qualifiers[index];
}

const MI_Qualifier* CMiValueWithQualifiers::FindQualifier(std::wstring_view name) const noexcept
{
  const std::size_t count = GetQualifierCount();
  for (std::size_t i = 0; i < count; ++i)
  {
    const MI_Qualifier* qualifier = GetPropertyDecl()->qualifiers[i];
    if (qualifier != nullptr && EqualsNoCase(qualifier->name, name))
    {
      return qualifier;
    }
  }
  return nullptr;
}

std::optional<__int64> CMiValueWithQualifiers::GetQualifierInteger(std::wstring_view name) const noexcept
{
  const MI_Qualifier* qualifier = FindQualifier(name);
  if (qualifier == nullptr || qualifier->value == nullptr)
  {
    return std::nullopt;
  }
  // The value points to data laid out as the matching MI_Value member.
  const void* data = qualifier->value;
  switch (qualifier->type)
  {
  case MI_BOOLEAN: return *static_cast<const MI_Boolean*>(data) != 0 ? 1 : 0;
  case MI_UINT8: return *static_cast<const MI_Uint8*>(data);
  case MI_SINT8: return *static_cast<const MI_Sint8*>(data);
  case MI_UINT16: return *static_cast<const MI_Uint16*>(data);
  case MI_SINT16: return *static_cast<const MI_Sint16*>(data);
  case MI_UINT32: return *static_cast<const MI_Uint32*>(data);
  case MI_SINT32: return *static_cast<const MI_Sint32*>(data);
  case MI_UINT64: return static_cast<__int64>(*static_cast<const MI_Uint64*>(data));
  case MI_SINT64: return *static_cast<const MI_Sint64*>(data);
  default: return std::nullopt;
  }
}

std::optional<std::wstring_view> CMiValueWithQualifiers::GetQualifierString(std::wstring_view name) const noexcept
{
  const MI_Qualifier* qualifier = FindQualifier(name);
  if (qualifier == nullptr || qualifier->value == nullptr || qualifier->type != MI_STRING)
  {
    return std::nullopt;
  }
  const MI_Char* text = *static_cast<const MI_Char* const*>(qualifier->value);
  return text != nullptr ? std::optional<std::wstring_view>(text) : std::nullopt;
}
