// Configuration of a "MiPerf" collection: which raw performance counters to cook and report,
// each with a factor and the value that identifies its target.
#pragma once

#include "Collector/Interfaces/FieldValue.h"
#include "KeldaKernel/Strings.h"

#include <vector>

namespace collector::ni::performance
{
class IMiPerfCollectionInit
{
public:
  struct CounterFilter
  {
    // Raw performance class, e.g. "Win32_PerfRawData_PerfOS_Processor".
    tstring ClassName;
    // Counter property of the class.
    tstring CounterName;
    // Carried along with the counter; no behaviour depends on it here.
    bool Flag = false;
    // Handed to the target collection with every record of this counter.
    FieldValue TargetValue;
    // Multiplier applied to the cooked value before it is reported.
    double Factor = 1.0;
  };

  virtual ~IMiPerfCollectionInit() = default;
  // Once only ("Already initialized").
  virtual void SetCounterFilter(const std::vector<CounterFilter>& filters) = 0;
};
} // namespace collector::ni::performance
