// The "MiPerf" collection: raw performance counter classes read over MI, cooked into counter
// values and tied to performance targets. The task makes it with the shared target collection
// and configures it once with the wanted counters; every update then hands its subscribers one
// batch (possibly empty) of keyless records, one per instance and counter that has a value:
//   "t"  the UTC time the class was reported (date-time)
//   "i"  whole seconds between the counter's last two samples (integer)
//   "v"  the cooked value times the configured factor (real)
//   "id" the number of the target (class, counter, instance) in the target collection (integer)
// and ends by letting the target collection report the targets added and removed. Its property
// bag holds "TargetCollectionId", the identifier of that target collection.
//   auto perf = std::make_shared<CMiPerformanceCollection>(log, pool, token, host, user, cls, targets);
//   perf->SetApplication(application);
//   perf->SetCounterFilter({{L"Win32_PerfRawData_PerfOS_Processor", L"PercentProcessorTime", false, L"cpu", 1.0}});
//   perf->Subscribe(subscriber); perf->Run();
#pragma once

#include "MiClient/MiPerformanceLoader.h"
#include "MiCollectionBase.h"
#include "PerfTargetCollectoin.h"
#include "Properties.h"

#include "Collector/Interfaces/PerformanceInit.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace collector::ni::impl
{
// Record type of counter records: they have no key and no kind beyond their collection's class.
inline constexpr std::uint32_t kMiPerfRecordType = 0;

class CMiPerformanceCollection : public MiCollectionBase,
                                 public CProperties,
                                 public performance::IMiPerfCollectionInit
{
public:
  // What one configured counter carries into its records.
  struct CounterConfig
  {
    double factor = 1.0;
    FieldValue targetValue;
    bool flag = false;
  };
  using CounterConfigMap = std::map<tstring, std::map<tstring, CounterConfig, std::less<>>, std::less<>>;

  CMiPerformanceCollection(const std::shared_ptr<CLog>& log, const pool& threadPool,
                           const std::shared_ptr<ICancellationToken>& token, const std::shared_ptr<IHost>& host,
                           const std::shared_ptr<IUser>& user, const std::shared_ptr<IClass>& cls,
                           std::shared_ptr<CPerfTargetCollection> targets);
  ~CMiPerformanceCollection() override = default;

  // Once only ("Already initialized"); a later filter of the same class and counter overrides
  // an earlier one's factor, target value and flag.
  void SetCounterFilter(const std::vector<CounterFilter>& filters) override;

  const std::shared_ptr<CPerfTargetCollection>& Targets() const noexcept { return m_targets; }

protected:
  void updateImpl() override;

private:
  std::shared_ptr<CLog> m_loaderLog;
  CMiPerformanceLoader m_loader;
  std::shared_ptr<CPerfTargetCollection> m_targets;
  CounterConfigMap m_counters;
};
} // namespace collector::ni::impl
