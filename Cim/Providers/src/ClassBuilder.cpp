#include "ClassBuilder.h"

#include <stdexcept>

namespace cim::machine
{
namespace
{
void Append(ClassDecl& decl, const PropertyDefinition& definition)
{
  PropertyDecl property{definition.name, definition.type, {}};
  if (definition.key)
    property.qualifiers.push_back({L"Key", Value(true)});
  if (definition.counterType != 0)
    property.qualifiers.push_back({L"CounterType", Value(definition.counterType)});
  decl.properties.push_back(std::move(property));
}
} // namespace

std::shared_ptr<const ClassDecl> MakeClass(const wchar_t* name, std::size_t expectedCount,
                                           std::initializer_list<PropertyDefinition> properties)
{
  if (properties.size() != expectedCount)
    throw std::logic_error("Property table and index enumeration disagree");
  auto decl = std::make_shared<ClassDecl>();
  decl->name = name;
  for (const auto& definition : properties)
    Append(*decl, definition);
  return decl;
}

std::shared_ptr<const ClassDecl> MakePerfClass(const wchar_t* name, std::size_t expectedCount, PerfInstances instances,
                                               std::initializer_list<PropertyDefinition> counters)
{
  if (PerfBaseCount + counters.size() != expectedCount)
    throw std::logic_error("Property table and index enumeration disagree");
  auto decl = std::make_shared<ClassDecl>();
  decl->name = name;
  const PropertyDefinition base[] = {
      {L"Caption", Type::String},          {L"Description", Type::String},
      {L"Name", Type::String, 0, instances == PerfInstances::Named}, {L"Frequency_Object", Type::UInt64},
      {L"Frequency_PerfTime", Type::UInt64}, {L"Frequency_Sys100NS", Type::UInt64},
      {L"Timestamp_Object", Type::UInt64}, {L"Timestamp_PerfTime", Type::UInt64},
      {L"Timestamp_Sys100NS", Type::UInt64},
  };
  static_assert(std::size(base) == PerfBaseCount);
  for (const auto& definition : base)
    Append(*decl, definition);
  for (const auto& definition : counters)
    Append(*decl, definition);
  return decl;
}

void SetPerfBase(Instance& instance, std::optional<std::wstring> name, const PerfStamp& stamp)
{
  if (name)
    Put(instance, PerfName, std::move(*name));
  Put(instance, PerfFrequencyObject, Units100nsPerSecond);
  Put(instance, PerfFrequencyPerfTime, stamp.frequency);
  Put(instance, PerfFrequencySys100NS, Units100nsPerSecond);
  Put(instance, PerfTimestampObject, stamp.sys100ns);
  Put(instance, PerfTimestampPerfTime, stamp.perfTime);
  Put(instance, PerfTimestampSys100NS, stamp.sys100ns);
}
} // namespace cim::machine
