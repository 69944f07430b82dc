// One collection made the way a caller of the library makes it: the collector from the exported
// factory, a host and a user in its pools, a task deployed on them and the collection created by
// its type name. The one-collection commands (events, props, perf) use it, so that they exercise
// the same path as a monitoring service.
//   auto made = natc::MakeLibraryCollection(workers, L"MiProp", L"localhost", L"", L"");
//   dynamic_cast<collector::ni::mi::IMiCollectionInit&>(*made.collection).SetFilter(filter);
//   made.collection->Run(); ... made.collector->Stop(true);
#pragma once

#include "Collector/Interfaces.h"
#include "KeldaKernel/Pool.h"
#include "common/StopSignals.h"

#include <memory>
#include <string>
#include <string_view>

namespace natc
{
struct SLibraryCollection
{
  std::shared_ptr<collector::ni::ICollector> collector;
  std::shared_ptr<collector::ni::ITask> task;
  std::shared_ptr<collector::ni::ICollection> collection;
};

// Throws std::runtime_error when this natc does not offer the type.
SLibraryCollection MakeLibraryCollection(pool workers, std::wstring_view type, const std::wstring& host,
                                         const std::wstring& account, const std::wstring& password);

// Runs the collection, handing its records and states to `printer`, until its first update has
// ended (with `once`: 0 when that update succeeded, 1 when not) or a stop signal came (0); then
// stops the collector and passes on what the printer's gate still holds.
int RunAndPrint(const SLibraryCollection& made,
                const std::shared_ptr<collector::ni::ICollectionTypes::ISubscriber>& printer, bool once,
                const CStopSignals& signals);

// The target collection that a "MiPerf" collection publishes as "TargetCollectionId", or null.
std::shared_ptr<collector::ni::ICollection> FindTargetCollection(const SLibraryCollection& made);
} // namespace natc
