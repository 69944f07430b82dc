// Reads raw performance counter classes over an MI session and cooks their counters. Told once
// (SetFilter) which counters of which classes are wanted, it builds one WQL query per class;
// every Load runs all queries, keeps the last raw sample of each (class, instance, counter) and
// turns two successive samples into a value (ComputeCounterValue). The result map persists
// between loads: the stored samples are what makes rates possible. Failures of one counter or
// one class are logged ("[MiLoader]" log) and the load goes on; a NULL counter is no reading
// (no value, no stored sample) and is not logged. Not thread-safe: one owner.
// The first instance of a class shows which time bases (Timestamp_Sys100NS, Timestamp_Object
// with Frequency_Object) and which "<counter>_Base" properties the class declares, as Windows'
// raw classes do; the query then selects them too, and is run again at once, so that every
// counter is measured on the time base and with the base that its type names.
//   CMiPerformanceLoader loader(std::make_shared<CLog>(collectionLog, L"[MiLoader]"));
//   loader.SetFilter(filters);
//   const auto& results = loader.Load(*session, token);   // results[class].instances[name][counter]
#pragma once

#include "CounterSample.h"
#include "MiSession.h"
#include "MiValue.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Strings.h"
#include "Platform/Mi.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

class CLog;
class CMiInstance;

class CMiPerformanceLoader
{
public:
  // What is wanted of one class.
  struct ClassFilter
  {
    // Written unchanged into the FROM clause; the key of the result map.
    tstring className;
    // Counter properties to read, in ordinal order.
    std::set<tstring, std::less<>> counters;
  };

  // By class name alone, ordinal: two filters of one class are one element of a set.
  struct ClassFilterCmp
  {
    bool operator()(const ClassFilter& left, const ClassFilter& right) const noexcept
    {
      return std::wstring_view(left.className) < std::wstring_view(right.className);
    }
  };

  using ClassFilters = std::set<ClassFilter, ClassFilterCmp>;

  // What a class declares beyond the fixed columns, as far as its counters need it.
  struct ClassColumns
  {
    bool sys100ns = false;   // "Timestamp_Sys100NS"
    bool objectTime = false; // "Timestamp_Object" and "Frequency_Object"
    // Counter name to the name of its base property, for the counters whose class declares one.
    std::map<tstring, tstring, std::less<>> bases;
  };

  struct QueryEntry
  {
    ClassFilter filter;
    tstring query;
    // Learned from the first instance the class delivers; until then the query selects the
    // fixed columns and the counters only.
    bool learned = false;
    ClassColumns columns;
  };

  // State and result of one counter of one instance.
  struct CounterData
  {
    // The cooked value of the last load; empty when it could not be computed or the instance
    // was not delivered by the last load.
    std::optional<double> value;
    // Whole seconds between the last two samples (set only when a stored sample existed).
    std::uint32_t interval = 0;
    CounterSample lastSample;
    bool hasSample = false;
  };

  using CounterMap = std::map<tstring, CounterData, std::less<>>;
  using InstanceMap = std::map<tstring, CounterMap, std::less<>>;

  struct CategoryResult
  {
    // Every instance ever seen, by its "Name" (a null name is the empty name).
    InstanceMap instances;
    // The failure of the class's last query; empty when it succeeded.
    std::exception_ptr error;
  };

  using ResultMap = std::map<tstring, CategoryResult, std::less<>>;

  explicit CMiPerformanceLoader(std::shared_ptr<CLog> log);

  // Once only ("Already initialized"). A filter without counters fails with "Counters are unset"
  // and leaves the loader unconfigured.
  void SetFilter(const ClassFilters& filters);
  // Runs every query once, in class-name order. A cancelled token ends the load by its
  // exception between classes. The reference is the loader's own map, valid until the next Load.
  const ResultMap& Load(CMiSession& session, const std::shared_ptr<ICancellationToken>& token);

  // "SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,<counters...> FROM <class>"; with the
  // columns a class declares: "...,Timestamp_PerfTime,Frequency_Object,Timestamp_Object,
  // Timestamp_Sys100NS,<counter>[,<counter>_Base]... FROM <class>".
  static tstring makeQuery(const ClassFilter& filter);
  static tstring makeQuery(const ClassFilter& filter, const ClassColumns& columns);
  // The counter type that a "CounterType" qualifier holds: integers and booleans by value (low
  // 32 bits), reals truncated toward zero, a char16 by its code; date-times, strings and
  // non-scalar types throw CMiException (type mismatch).
  static std::uint32_t CounterTypeOf(const MI_Qualifier& qualifier);

  const std::vector<QueryEntry>& Queries() const noexcept { return m_queries; }
  const ResultMap& Results() const noexcept { return m_results; }

private:
  void loadClass(CMiSession& session, QueryEntry& entry, CategoryResult& result);
  void loadCounter(const CMiInstance& instance, const QueryEntry& entry, const tstring& counter, std::int64_t tick,
                   CounterData& data);

  std::shared_ptr<CLog> m_log;
  std::vector<QueryEntry> m_queries;
  ResultMap m_results;
};
