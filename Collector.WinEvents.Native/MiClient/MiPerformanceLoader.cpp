#include "MiPerformanceLoader.h"

#include "CounterValue.h"
#include "Log.h"
#include "MiInstance.h"

#include "KeldaKernel/Exceptions.h"
#include "Platform/Windows.h"

#include <cstring>
#include <fmt/xchar.h>

namespace
{
constexpr std::wstring_view selectWord = L"SELECT ";
constexpr std::wstring_view fromWord = L" FROM ";
constexpr std::wstring_view fixedColumns = L"Name,Frequency_PerfTime,Timestamp_PerfTime";
constexpr std::wstring_view objectColumns = L",Frequency_Object,Timestamp_Object";
constexpr std::wstring_view sys100nsColumn = L",Timestamp_Sys100NS";
constexpr std::wstring_view baseSuffix = L"_Base";
constexpr std::wstring_view counterTypeName = L"CounterType";

// The columns of the filter's counters that the class of this instance declares.
CMiPerformanceLoader::ClassColumns DeclaredColumns(const CMiInstance& instance,
                                                   const CMiPerformanceLoader::ClassFilter& filter)
{
  CMiPerformanceLoader::ClassColumns columns;
  columns.sys100ns = instance.Declares(L"Timestamp_Sys100NS");
  columns.objectTime = instance.Declares(L"Timestamp_Object") && instance.Declares(L"Frequency_Object");
  tstring base;
  for (const auto& counter : filter.counters)
  {
    base.assign(counter).append(baseSuffix);
    if (instance.Declares(base))
      columns.bases.emplace(counter, base);
  }
  return columns;
}

// The sample fields come from properties that are read as numbers; a NULL one has no number.
__int64 ReadNumber(const CMiInstance& instance, std::wstring_view name, CMiValue& value)
{
  instance.Get(name, value);
  if (value.IsNull())
    KELDA_THROW(CKeldaException(fmt::format(L"Property '{}' is null", name)));
  return value.Value();
}

// The qualifier named exactly "CounterType" (case-sensitive), or null.
const MI_Qualifier* FindCounterType(const CMiValueWithQualifiers& value) noexcept
{
  const std::size_t count = value.GetQualifierCount();
  for (std::size_t i = 0; i < count; ++i)
  {
    const MI_Qualifier* qualifier = value.GetQualifier(i);
    if (qualifier != nullptr && qualifier->name != nullptr && std::wstring_view(qualifier->name) == counterTypeName)
      return qualifier;
  }
  return nullptr;
}
} // namespace

CMiPerformanceLoader::CMiPerformanceLoader(std::shared_ptr<CLog> log) : m_log(std::move(log)) {}

tstring CMiPerformanceLoader::makeQuery(const ClassFilter& filter)
{
  return makeQuery(filter, ClassColumns{});
}

tstring CMiPerformanceLoader::makeQuery(const ClassFilter& filter, const ClassColumns& columns)
{
  if (filter.counters.empty())
    KELDA_THROW(CKeldaException(L"Counters are unset"));
  std::size_t length = selectWord.size() + fixedColumns.size() + fromWord.size() + filter.className.size();
  if (columns.objectTime)
    length += objectColumns.size();
  if (columns.sys100ns)
    length += sys100nsColumn.size();
  for (const auto& counter : filter.counters)
    length += 1 + counter.size();
  for (const auto& [counter, base] : columns.bases)
    length += 1 + base.size();
  tstring query;
  query.reserve(length);
  query.append(selectWord).append(fixedColumns);
  if (columns.objectTime)
    query.append(objectColumns);
  if (columns.sys100ns)
    query.append(sys100nsColumn);
  for (const auto& counter : filter.counters)
  {
    query.append(1, L',').append(counter);
    if (const auto base = columns.bases.find(counter); base != columns.bases.end())
      query.append(1, L',').append(base->second);
  }
  query.append(fromWord).append(filter.className);
  return query;
}

void CMiPerformanceLoader::SetFilter(const ClassFilters& filters)
{
  if (!m_queries.empty())
    KELDA_THROW(CKeldaException(L"Already initialized"));
  try
  {
    m_queries.reserve(filters.size());
    for (const auto& filter : filters)
    {
      tstring query = makeQuery(filter);
      QueryEntry& entry = m_queries.emplace_back();
      entry.filter = filter;
      entry.query = std::move(query);
    }
  }
  catch (...)
  {
    // A half-built configuration would hide the error: the loader stays unconfigured.
    m_queries.clear();
    throw;
  }
}

std::uint32_t CMiPerformanceLoader::CounterTypeOf(const MI_Qualifier& qualifier)
{
  MI_Value raw{};
  const auto type = static_cast<MI_Type>(qualifier.type);
  // The qualifier's value points to data laid out as the MI_Value member of its type; only
  // scalar types are copied, anything else is refused by the typed read below.
  if (qualifier.value != nullptr)
  {
    switch (type)
    {
    case MI_BOOLEAN: std::memcpy(&raw.boolean, qualifier.value, sizeof raw.boolean); break;
    case MI_UINT8: std::memcpy(&raw.uint8, qualifier.value, sizeof raw.uint8); break;
    case MI_SINT8: std::memcpy(&raw.sint8, qualifier.value, sizeof raw.sint8); break;
    case MI_UINT16: std::memcpy(&raw.uint16, qualifier.value, sizeof raw.uint16); break;
    case MI_SINT16: std::memcpy(&raw.sint16, qualifier.value, sizeof raw.sint16); break;
    case MI_UINT32: std::memcpy(&raw.uint32, qualifier.value, sizeof raw.uint32); break;
    case MI_SINT32: std::memcpy(&raw.sint32, qualifier.value, sizeof raw.sint32); break;
    case MI_UINT64: std::memcpy(&raw.uint64, qualifier.value, sizeof raw.uint64); break;
    case MI_SINT64: std::memcpy(&raw.sint64, qualifier.value, sizeof raw.sint64); break;
    case MI_REAL32: std::memcpy(&raw.real32, qualifier.value, sizeof raw.real32); break;
    case MI_REAL64: std::memcpy(&raw.real64, qualifier.value, sizeof raw.real64); break;
    case MI_CHAR16: std::memcpy(&raw.char16, qualifier.value, sizeof raw.char16); break;
    default: break;
    }
  }
  const CMiValue value(raw, type, 0);
  const unsigned int counterType = value.Value();
  return counterType;
}

const CMiPerformanceLoader::ResultMap& CMiPerformanceLoader::Load(CMiSession& session,
                                                                  const std::shared_ptr<ICancellationToken>& token)
{
  for (auto& entry : m_queries)
  {
    if (token)
      token->throw_if_cancelled();
    auto position = m_results.find(entry.filter.className);
    if (position == m_results.end())
      position = m_results.emplace(entry.filter.className, CategoryResult{}).first;
    CategoryResult& result = position->second;
    result.error = nullptr;
    try
    {
      loadClass(session, entry, result);
    }
    catch (const CInterruptedException&)
    {
      throw;
    }
    catch (const std::exception& error)
    {
      // Samples of a class that could not be read completely are not trusted for the next rate.
      result.instances.clear();
      result.error = std::current_exception();
      m_log->Error(error, fmt::format(L"Failed to execute '{}'", entry.query));
    }
  }
  return m_results;
}

void CMiPerformanceLoader::loadClass(CMiSession& session, QueryEntry& entry, CategoryResult& result)
{
  // A value is that of this load: an instance that is gone (an ended process) keeps its stored
  // samples but has no value, so it is not reported and its target ends.
  for (auto& [instanceName, counters] : result.instances)
    for (auto& [counterName, data] : counters)
      data.value.reset();
  CMiInstanceOperation operation = session.QueryInstances(L"root/cimv2", entry.query);
  // One tick for every instance of the query.
  auto tick = static_cast<std::int64_t>(GetTickCount64());
  CMiInstance instance = operation.GetInstance();
  if (!entry.learned && !instance.IsEmpty())
  {
    entry.learned = true;
    entry.columns = DeclaredColumns(instance, entry.filter);
    tstring query = makeQuery(entry.filter, entry.columns);
    if (query != entry.query)
    {
      // The first results lack the time bases and bases the class declares: read them again.
      entry.query = std::move(query);
      instance = CMiInstance();
      operation = session.QueryInstances(L"root/cimv2", entry.query);
      tick = static_cast<std::int64_t>(GetTickCount64());
      instance = operation.GetInstance();
    }
  }
  CMiValue name;
  for (; !instance.IsEmpty(); instance = operation.GetInstance())
  {
    instance.Get(L"Name", name);
    const std::wstring_view instanceName = name.IsNull() ? std::wstring_view() : static_cast<std::wstring_view>(name.Value());
    auto found = result.instances.find(instanceName);
    if (found == result.instances.end())
      found = result.instances.emplace(tstring(instanceName), CounterMap{}).first;
    CounterMap& counters = found->second;
    for (const auto& counter : entry.filter.counters)
    {
      auto data = counters.find(counter);
      if (data == counters.end())
        data = counters.emplace(counter, CounterData{}).first;
      try
      {
        loadCounter(instance, entry, counter, tick, data->second);
      }
      catch (const CInterruptedException&)
      {
        throw;
      }
      catch (const std::exception& error)
      {
        data->second.value.reset();
        data->second.hasSample = false;
        m_log->Error(error, fmt::format(L"Failed to process counter {} of class {}", counter, entry.filter.className));
      }
    }
  }
}

void CMiPerformanceLoader::loadCounter(const CMiInstance& instance, const QueryEntry& entry, const tstring& counter,
                                       std::int64_t tick, CounterData& data)
{
  CMiValueWithQualifiers counterValue;
  instance.Get(counter, counterValue);
  const MI_Qualifier* qualifier = FindCounterType(counterValue);
  if (qualifier == nullptr || qualifier->value == nullptr)
    KELDA_THROW(CKeldaException(L"Qualifier 'CounterType' was not found"));

  // A NULL counter is a provider's "unknown", not a failure: no reading, so no value, and the
  // next reading starts afresh. Logging it would repeat for every instance on every update.
  // A NULL base is no reading of the counter's fraction or average either.
  CMiValue other;
  const auto base = entry.columns.bases.find(counter);
  const bool hasBase = base != entry.columns.bases.end();
  if (counterValue.IsNull() || (hasBase && instance.Get(base->second, other).IsNull()))
  {
    data.value.reset();
    data.hasSample = false;
    return;
  }
  CounterSample sample;
  sample.value = static_cast<__int64>(counterValue.Value());
  sample.base = hasBase ? static_cast<__int64>(other.Value()) : 0;
  sample.frequency = ReadNumber(instance, L"Frequency_PerfTime", other);
  sample.timestamp = ReadNumber(instance, L"Timestamp_PerfTime", other);
  sample.tick = tick;
  if (entry.columns.sys100ns)
    sample.time100ns = ReadNumber(instance, L"Timestamp_Sys100NS", other);
  if (entry.columns.objectTime)
  {
    sample.objectTimestamp = ReadNumber(instance, L"Timestamp_Object", other);
    sample.objectFrequency = ReadNumber(instance, L"Frequency_Object", other);
  }

  const std::uint32_t counterType = CounterTypeOf(*qualifier);
  data.value = ComputeCounterValue(sample, data.hasSample ? &data.lastSample : nullptr, counterType);
  if (data.hasSample)
  {
    // A zero frequency has no quotient: the interval stays as it was. The difference wraps like
    // the machine's subtraction instead of overflowing, and so does the one quotient that does
    // not fit (the most negative number divided by -1).
    if (sample.frequency != 0)
    {
      const auto elapsed = static_cast<std::int64_t>(static_cast<std::uint64_t>(sample.timestamp) -
                                                     static_cast<std::uint64_t>(data.lastSample.timestamp));
      const std::int64_t seconds = sample.frequency == -1 ? static_cast<std::int64_t>(0 - static_cast<std::uint64_t>(elapsed))
                                                          : elapsed / sample.frequency;
      data.interval = static_cast<std::uint32_t>(seconds);
    }
  }
  else
  {
    data.hasSample = true;
  }
  data.lastSample = sample;
}
