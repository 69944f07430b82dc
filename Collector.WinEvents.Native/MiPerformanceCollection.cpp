#include "MiPerformanceCollection.h"

#include "Collector.Interfaces.Impl.h"
#include "KeldaKernel/Exceptions.h"
#include "Log.h"

#include <utility>

namespace collector::ni::impl
{
namespace
{
struct SCounterFieldNames
{
  std::shared_ptr<tstring> Time = MakeFieldName(L"t");
  std::shared_ptr<tstring> Interval = MakeFieldName(L"i");
  std::shared_ptr<tstring> Value = MakeFieldName(L"v");
  std::shared_ptr<tstring> Id = MakeFieldName(L"id");
};

const SCounterFieldNames& CounterFieldNames()
{
  static const SCounterFieldNames names;
  return names;
}
} // namespace

CMiPerformanceCollection::CMiPerformanceCollection(const std::shared_ptr<CLog>& log, const pool& threadPool,
                                                   const std::shared_ptr<ICancellationToken>& token,
                                                   const std::shared_ptr<IHost>& host,
                                                   const std::shared_ptr<IUser>& user,
                                                   const std::shared_ptr<IClass>& cls,
                                                   std::shared_ptr<CPerfTargetCollection> targets)
  : MiCollectionBase(log, threadPool, token, host, user, cls),
    m_loaderLog(std::make_shared<CLog>(this->log(), L"[MiLoader]")),
    m_loader(m_loaderLog),
    m_targets(std::move(targets))
{
  if (!m_targets)
    KELDA_THROW(CHResultException(E_INVALIDARG, L"Target collection is unset"));
  SetProperty(L"TargetCollectionId", m_targets->GetId());
}

void CMiPerformanceCollection::SetCounterFilter(const std::vector<CounterFilter>& filters)
{
  if (!m_counters.empty())
    KELDA_THROW(CKeldaException(L"Already initialized"));
  CounterConfigMap counters;
  for (const auto& filter : filters)
    counters[filter.ClassName][filter.CounterName] = CounterConfig{filter.Factor, filter.TargetValue, filter.Flag};
  // One class filter per class, holding every counter named for it.
  CMiPerformanceLoader::ClassFilters classFilters;
  for (const auto& [className, classCounters] : counters)
  {
    CMiPerformanceLoader::ClassFilter classFilter{className, {}};
    for (const auto& entry : classCounters)
      classFilter.counters.insert(entry.first);
    classFilters.insert(classFilters.end(), std::move(classFilter));
  }
  // The configuration is kept only once the loader took the filters, so a refused filter
  // leaves the collection unconfigured.
  m_loader.SetFilter(classFilters);
  m_counters = std::move(counters);
}

void CMiPerformanceCollection::updateImpl()
{
  const std::shared_ptr<CMiSession> session = getSession();
  const CMiPerformanceLoader::ResultMap& results = m_loader.Load(*session, cancellationToken());
  const auto& names = CounterFieldNames();

  std::vector<std::shared_ptr<IRecord>> records;
  for (const auto& [className, result] : results)
  {
    const auto classConfig = m_counters.find(className);
    // A failed class was logged by the loader; its counters are not reported.
    if (classConfig == m_counters.end() || result.error)
      continue;
    const COleDateTimeEx time = COleDateTimeEx::GetCurrentUtcTime();
    for (const auto& [instance, counters] : result.instances)
    {
      for (const auto& [counter, data] : counters)
      {
        if (!data.value)
          continue;
        const auto config = classConfig->second.find(counter);
        if (config == classConfig->second.end())
          continue;
        const std::uint64_t target = m_targets->GetOrAddTarget({instance, counter, className}, config->second.targetValue);
        auto record = std::make_shared<CRecordOnVectorNoKey>(kMiPerfRecordType, 4);
        record->AddField(names.Time, time);
        record->AddField(names.Interval, static_cast<__int64>(data.interval));
        record->AddField(names.Value, *data.value * config->second.factor);
        record->AddField(names.Id, static_cast<__int64>(target));
        records.push_back(std::move(record));
      }
    }
  }
  // One batch per update, also when it is empty: subscribers learn that the update happened.
  notifyRecords(records);
  m_targets->EndUpdateAndNotify();
}
} // namespace collector::ni::impl
