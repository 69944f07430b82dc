// Declares a class from a table of properties, and fills the properties every raw
// performance class inherits (Win32_Perf: names, frequencies, timestamps). Key properties carry
// the qualifier "Key" = true, which keeps them in every projected query, as WMI does.
#pragma once

#include "Cim/Machine/Clock.h"
#include "Cim/Model.h"

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

namespace cim::machine
{
struct PropertyDefinition
{
  const wchar_t* name;
  Type type;
  std::uint32_t counterType = 0; // 0: not a counter, no "CounterType" qualifier
  bool key = false;
};

// expectedCount guards the index enumeration that the builder uses against the table: a
// mismatch is a programming error and throws std::logic_error on first use.
std::shared_ptr<const ClassDecl> MakeClass(const wchar_t* name, std::size_t expectedCount,
                                           std::initializer_list<PropertyDefinition> properties);

// The nine properties of Win32_PerfRawData, at indices 0 to 8 of every raw class declared with
// PerfBase() first.
enum PerfBaseIndex : std::size_t
{
  PerfCaption, PerfDescription, PerfName, PerfFrequencyObject, PerfFrequencyPerfTime, PerfFrequencySys100NS,
  PerfTimestampObject, PerfTimestampPerfTime, PerfTimestampSys100NS, PerfBaseCount
};
// A class of named instances has "Name" as its key; a single-instance class (Windows marks it
// Singleton: System, Memory) has no key.
enum class PerfInstances
{
  Named, Single
};
std::shared_ptr<const ClassDecl> MakePerfClass(const wchar_t* name, std::size_t expectedCount, PerfInstances instances,
                                               std::initializer_list<PropertyDefinition> counters);

// Name (null for a single-instance class) and the three time bases of one sample: PerfTime at the
// stamp's frequency, Sys100NS and Object as FILETIMEs at 10,000,000.
void SetPerfBase(Instance& instance, std::optional<std::wstring> name, const PerfStamp& stamp);

inline void Put(Instance& instance, std::size_t index, Value value) { instance.elements[index].value = std::move(value); }
template <typename T>
void PutIf(Instance& instance, std::size_t index, const std::optional<T>& value)
{
  if (value)
    instance.elements[index].value = Value(*value);
}
} // namespace cim::machine
