// The shared record implementations every collection builds its output with:
//   CField                - a shared name and a value (Collector/Interfaces/Impl/Field.h)
//   CKey                  - the class of the producing collection and the identifying fields
//   CRecordOnVectorNoKey  - fields held by value in one vector, looked up by name
//   CRecordOnVector       - the same with an embedded CKey
// plus the event field names and the GUID-keyed pool template.
// Producers append every field first and look up afterwards: the fields are sorted by name on
// the first lookup after an append, not on each append.
//   CRecordOnVector record(std::move(key), 1, 8);
//   record.AddField(names.SourceName, source); ... record.GetField(L"EventCode");
#pragma once

#include "Collector/Interfaces/FieldNames.h"
#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IRecord.h"
#include "Collector/Interfaces/Impl/CriticalSection.h"
#include "Collector/Interfaces/Impl/Field.h"
#include "Collector/Interfaces/Impl/PoolBase.h"
#include "KeldaKernel/Exceptions.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace collector::ni::impl
{
class CKey : public IKey
{
public:
  CKey() = default;
  CKey(std::shared_ptr<IClass> keyClass, std::vector<std::shared_ptr<IField>> fields)
    : m_class(std::move(keyClass)), m_fields(std::move(fields))
  {
  }
  CKey(CKey&&) noexcept = default;
  CKey& operator=(CKey&&) noexcept = default;
  CKey(const CKey&) = delete;
  CKey& operator=(const CKey&) = delete;
  ~CKey() override = default;

  std::shared_ptr<IClass> GetClass() const override { return m_class; }
  const std::vector<std::shared_ptr<IField>>& GetFields() const override { return m_fields; }

  void SetClass(std::shared_ptr<IClass> keyClass) { m_class = std::move(keyClass); }
  void AddField(std::shared_ptr<IField> field) { m_fields.push_back(std::move(field)); }
  // Empties the fields, keeping the vector's capacity for the next ones.
  void ClearFields() noexcept { m_fields.clear(); }

private:
  std::shared_ptr<IClass> m_class;
  std::vector<std::shared_ptr<IField>> m_fields;
};

class CRecordOnVectorNoKey : public ICompositionRecord
{
public:
  // `capacity` fields are reserved up front so that building costs one allocation.
  // NOLINTNEXTLINE(bugprone-easily-swappable-parameters): type first, as every producer writes it.
  explicit CRecordOnVectorNoKey(std::uint32_t type = 0, std::size_t capacity = 0) : m_type(type)
  {
    m_fields.reserve(capacity);
  }
  CRecordOnVectorNoKey(const CRecordOnVectorNoKey&) = delete;
  CRecordOnVectorNoKey& operator=(const CRecordOnVectorNoKey&) = delete;
  ~CRecordOnVectorNoKey() override = default;

  IKey* GetKey() override { return nullptr; }

  using IRecord::FindField;
  IField* FindField(std::wstring_view name) override { return lookUp(name); }
  IField* FindField(const tstring& name) override { return lookUp(name); }

  IField* GetField(std::wstring_view name) override
  {
    IField* field = lookUp(name);
    if (field == nullptr)
      KELDA_THROW(CKeldaException(L"Not found"));
    return field;
  }

  ICompositionRecord* Detach() override
  {
    // Ownership passes to the caller, who deletes it through the virtual destructor.
    return new CRecordOnVectorNoKey(std::move(*this));
  }

  std::uint32_t GetType() const override { return m_type; }
  void SetType(std::uint32_t type) noexcept { m_type = type; }

  // Appends a field; the vector grows by half its capacity (at least to the size needed).
  template <class Value>
  CField& AddField(std::shared_ptr<tstring> name, Value&& value)
  {
    if (m_fields.size() == m_fields.capacity())
      m_fields.reserve(std::max(m_fields.size() + 1, m_fields.capacity() + m_fields.capacity() / 2));
    m_sorted = false;
    return m_fields.emplace_back(std::move(name), std::forward<Value>(value));
  }

  void Reserve(std::size_t capacity) { m_fields.reserve(capacity); }
  std::size_t GetFieldCount() const noexcept { return m_fields.size(); }
  const std::vector<CField>& GetFields() const noexcept { return m_fields; }
  // For producers that build the vector themselves: the record sorts again on the next lookup.
  std::vector<CField>& MutableFields() noexcept
  {
    m_sorted = false;
    return m_fields;
  }

protected:
  // Takes over the fields, the sorted flag and the type; the source is left with no fields.
  CRecordOnVectorNoKey(CRecordOnVectorNoKey&& other) noexcept
    : m_fields(std::move(other.m_fields)), m_sorted(other.m_sorted), m_type(other.m_type)
  {
    other.m_fields.clear();
    other.m_sorted = true;
  }

private:
  // Ordinal order of the code units, no case folding; a prefix sorts before the longer name.
  static bool nameLess(const CField& left, const CField& right) noexcept
  {
    const std::wstring_view a(left.GetName());
    const std::wstring_view b(right.GetName());
    // Most names differ in their first character: decide there without a library call.
    if (!a.empty() && !b.empty() && a.front() != b.front())
      return a.front() < b.front();
    return a < b;
  }

  // Records are small: their order is worked out on indices and each field then moves once,
  // rather than being shuffled through every step of a sort.
  void sortByName()
  {
    constexpr std::size_t smallRecord = 32;
    const std::size_t count = m_fields.size();
    if (count > smallRecord)
    {
      std::stable_sort(m_fields.begin(), m_fields.end(), nameLess);
      return;
    }
    std::array<std::uint8_t, smallRecord> order{};
    for (std::size_t i = 0; i < count; ++i)
    {
      std::size_t at = i;
      while (at > 0 && nameLess(m_fields[i], m_fields[order[at - 1]]))
      {
        order[at] = order[at - 1];
        --at;
      }
      order[at] = static_cast<std::uint8_t>(i);
    }
    // Place field order[i] at i, one cycle of the permutation at a time.
    std::array<bool, smallRecord> placed{};
    for (std::size_t start = 0; start < count; ++start)
    {
      if (placed[start] || order[start] == start)
        continue;
      CField held = std::move(m_fields[start]);
      std::size_t at = start;
      while (order[at] != start)
      {
        m_fields[at] = std::move(m_fields[order[at]]);
        placed[at] = true;
        at = order[at];
      }
      m_fields[at] = std::move(held);
      placed[at] = true;
    }
  }

  CField* lookUp(std::wstring_view name)
  {
    if (!m_sorted)
    {
      sortByName();
      m_sorted = true;
    }
    const auto position = std::lower_bound(m_fields.begin(), m_fields.end(), name,
                                           [](const CField& field, std::wstring_view wanted) {
                                             return std::wstring_view(field.GetName()) < wanted;
                                           });
    if (position == m_fields.end() || position->GetName() != name)
      return nullptr;
    return &*position;
  }

  std::vector<CField> m_fields;
  // An empty vector counts as sorted; every append clears the flag.
  bool m_sorted = true;
  std::uint32_t m_type = 0;
};

class CRecordOnVector : public CRecordOnVectorNoKey
{
public:
  explicit CRecordOnVector(CKey key = {}, std::uint32_t type = 0, std::size_t capacity = 0)
    : CRecordOnVectorNoKey(type, capacity), m_key(std::move(key))
  {
  }
  ~CRecordOnVector() override = default;

  IKey* GetKey() override { return &m_key; }
  CKey& Key() noexcept { return m_key; }

  ICompositionRecord* Detach() override
  {
    // Ownership passes to the caller, who deletes it through the virtual destructor.
    return new CRecordOnVector(std::move(*this));
  }

protected:
  CRecordOnVector(CRecordOnVector&& other) noexcept
    : CRecordOnVectorNoKey(std::move(other)), m_key(std::move(other.m_key))
  {
  }

private:
  CKey m_key;
};
} // namespace collector::ni::impl
