#include "Properties.h"

#include <mutex>

namespace collector::ni::impl
{
FieldValue CProperties::GetProperty(std::wstring_view name)
{
  // Scoped: an exception while copying the value still releases the lock.
  const std::lock_guard guard(m_lock);
  const auto position = m_values.find(name);
  if (position == m_values.end())
    return FieldValue(std::in_place_type<tstring>);
  return position->second;
}

void CProperties::SetProperty(std::wstring_view name, const FieldValue& value)
{
  const std::lock_guard guard(m_lock);
  const auto position = m_values.find(name);
  if (position == m_values.end())
    m_values.emplace(tstring(name), value);
  else
    position->second = value;
}
} // namespace collector::ni::impl
