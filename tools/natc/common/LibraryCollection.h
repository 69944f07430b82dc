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

// The target collection that a "MiPerf" collection publishes as "TargetCollectionId", or null.
std::shared_ptr<collector::ni::ICollection> FindTargetCollection(const SLibraryCollection& made);
} // namespace natc
