// CField: a shared name and one typed value; the element of every record's field vector.
// Names are shared pointers made once (see FieldNames.h), so a field costs one pointer for its
// name. Fields are moved into records, never copied.
// Usage: record.AddField(names.EventCode, 7036);  // or CField(name, value) directly
#pragma once

#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/IRecord.h"
#include "KeldaKernel/OleDateTime.h"
#include "KeldaKernel/Strings.h"

#include <concepts>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

namespace collector::ni::impl
{
class CField : public IField
{
public:
  // No name and empty text: only a target for moves.
  CField() = default;
  // 32-bit integers are sign-extended.
  CField(std::shared_ptr<tstring> name, int value) : m_name(std::move(name)), m_value(static_cast<__int64>(value)) {}
  CField(std::shared_ptr<tstring> name, __int64 value) : m_name(std::move(name)), m_value(value) {}
  // Any other integer (unsigned, other widths) is held as __int64 too.
  template <std::integral Integer>
    requires(!std::same_as<Integer, bool> && !std::same_as<Integer, int> && !std::same_as<Integer, __int64>)
  CField(std::shared_ptr<tstring> name, Integer value)
    : m_name(std::move(name)), m_value(static_cast<__int64>(value))
  {
  }
  CField(std::shared_ptr<tstring> name, double value) : m_name(std::move(name)), m_value(value) {}
  // Date-times are built in place from their source by the date-time's own constructor.
  CField(std::shared_ptr<tstring> name, const COleDateTimeEx& value) : m_name(std::move(name)), m_value(value) {}
  CField(std::shared_ptr<tstring> name, const SYSTEMTIME& source)
    : m_name(std::move(name)), m_value(std::in_place_type<COleDateTimeEx>, source)
  {
  }
  CField(std::shared_ptr<tstring> name, const FILETIME& source)
    : m_name(std::move(name)), m_value(std::in_place_type<COleDateTimeEx>, source)
  {
  }
  CField(std::shared_ptr<tstring> name, tstring value)
    : m_name(std::move(name)), m_value(std::in_place_type<tstring>, std::move(value))
  {
  }
  CField(std::shared_ptr<tstring> name, std::wstring_view value)
    : m_name(std::move(name)), m_value(std::in_place_type<tstring>, value)
  {
  }
  CField(std::shared_ptr<tstring> name, const wchar_t* value)
    : m_name(std::move(name)), m_value(std::in_place_type<tstring>, value)
  {
  }
  CField(std::shared_ptr<tstring> name, FieldValue value) : m_name(std::move(name)), m_value(std::move(value)) {}

  CField(CField&&) noexcept = default;
  CField& operator=(CField&&) noexcept = default;
  CField(const CField&) = delete;
  CField& operator=(const CField&) = delete;
  ~CField() override = default;

  const tstring& GetName() const override { return m_name ? *m_name : emptyName(); }
  FieldValue& GetValue() override { return m_value; }
  const FieldValue& GetValue() const override { return m_value; }

  // The shared name object itself (empty for a default-made field).
  const std::shared_ptr<tstring>& GetSharedName() const noexcept { return m_name; }

private:
  static const tstring& emptyName()
  {
    static const tstring empty;
    return empty;
  }

  std::shared_ptr<tstring> m_name;
  FieldValue m_value;
};
} // namespace collector::ni::impl
