#include "ClassDecl.h"

#include "Cim/Wql/BoundQuery.h"

namespace platform::mi
{
namespace
{
// The declarations' hash code: (first char << 16) | (last char << 8) | length.
MI_Uint32 HashCode(const std::wstring& name)
{
  if (name.empty())
    return 0;
  return (static_cast<MI_Uint32>(name.front() & 0xFF) << 16) | (static_cast<MI_Uint32>(name.back() & 0xFF) << 8) |
         static_cast<MI_Uint32>(name.size() & 0xFF);
}

void ToMiDatetime(const cim::DateTime& value, MI_Datetime& out)
{
  out = MI_Datetime{};
  out.isTimestamp = value.isTimestamp ? 1 : 0;
  if (value.isTimestamp)
    out.u.timestamp = {value.year, value.month, value.day, value.hour, value.minute, value.second,
                       value.microseconds, value.utc};
  else
    out.u.interval = {value.days, value.hours, value.minutes, value.seconds, value.microseconds, 0, 0, 0};
}
} // namespace

void ToMiValue(const cim::Value& value, MI_Value& out)
{
  out = MI_Value{};
  std::visit(
      [&out](const auto& v) {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, bool>)
          out.boolean = v ? MI_TRUE : MI_FALSE;
        else if constexpr (std::is_same_v<T, std::uint8_t>)
          out.uint8 = v;
        else if constexpr (std::is_same_v<T, std::int8_t>)
          out.sint8 = v;
        else if constexpr (std::is_same_v<T, std::uint16_t>)
          out.uint16 = v;
        else if constexpr (std::is_same_v<T, std::int16_t>)
          out.sint16 = v;
        else if constexpr (std::is_same_v<T, std::uint32_t>)
          out.uint32 = v;
        else if constexpr (std::is_same_v<T, std::int32_t>)
          out.sint32 = v;
        else if constexpr (std::is_same_v<T, std::uint64_t>)
          out.uint64 = v;
        else if constexpr (std::is_same_v<T, std::int64_t>)
          out.sint64 = v;
        else if constexpr (std::is_same_v<T, float>)
          out.real32 = v;
        else if constexpr (std::is_same_v<T, double>)
          out.real64 = v;
        else if constexpr (std::is_same_v<T, char16_t>)
          out.char16 = static_cast<MI_Char16>(v);
        else if constexpr (std::is_same_v<T, cim::DateTime>)
          ToMiDatetime(v, out.datetime);
        else
          out.string = const_cast<MI_Char*>(v.c_str()); // MI_Value has no const string member
      },
      value);
}

MiClassDecl::MiClassDecl(std::shared_ptr<const cim::ClassDecl> source) : m_source(std::move(source))
{
  const cim::ClassDecl& decl = *m_source;
  m_properties.resize(decl.properties.size());
  m_propertyList.resize(decl.properties.size());
  m_qualifierLists.resize(decl.properties.size());
  for (std::size_t i = 0; i < decl.properties.size(); ++i)
  {
    const cim::PropertyDecl& property = decl.properties[i];
    auto& qualifiers = m_qualifierLists[i];
    for (const cim::Qualifier& qualifier : property.qualifiers)
    {
      MI_Value& value = m_qualifierValues.emplace_back();
      ToMiValue(qualifier.value, value);
      MI_Qualifier& entry = m_qualifiers.emplace_back();
      entry.name = qualifier.name.c_str();
      entry.type = static_cast<MI_Uint32>(qualifier.value.index());
      entry.flavor = MI_FLAG_ENABLEOVERRIDE | MI_FLAG_TOSUBCLASS;
      // Every MI_Value member starts at the union's address, so this points at the typed data.
      entry.value = &value;
      qualifiers.push_back(&entry);
    }
    MI_PropertyDecl& out = m_properties[i];
    out.flags = MI_FLAG_PROPERTY | (cim::wql::IsKey(property) ? MI_FLAG_KEY : 0);
    out.code = HashCode(property.name);
    out.name = property.name.c_str();
    out.qualifiers = qualifiers.empty() ? nullptr : qualifiers.data();
    out.numQualifiers = static_cast<MI_Uint32>(qualifiers.size());
    out.type = static_cast<MI_Uint32>(property.type);
    out.offset = static_cast<MI_Uint32>(i);
    out.origin = decl.name.c_str();
    out.propagator = decl.name.c_str();
    m_propertyList[i] = &out;
  }
  m_decl.flags = MI_FLAG_CLASS;
  m_decl.code = HashCode(decl.name);
  m_decl.name = decl.name.c_str();
  m_decl.properties = m_propertyList.empty() ? nullptr : m_propertyList.data();
  m_decl.numProperties = static_cast<MI_Uint32>(m_propertyList.size());
  m_decl.size = sizeof(MI_Instance);
}
} // namespace platform::mi
