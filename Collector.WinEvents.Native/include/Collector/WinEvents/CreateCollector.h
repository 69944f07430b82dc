// The library's entry point. A caller makes one collector per thread pool and cancellation
// token, then fills its pools and deploys tasks:
//   pool workers(4);
//   auto collector = collector::win_events::create_collector(workers, create_cancellation());
//   auto host = collector->GetHostPool()->Create(L"server01");
//   auto user = collector->GetUserPool()->CreateDefault(L"", L"");
//   auto task = collector->GetTaskPool()->Deploy(L"main", host->GetId(), user->GetId());
//   auto events = task->CreateCollection(L"WindowsEvents");   // configure, Subscribe, Run
//   ...
//   collector->Stop(true);
#pragma once

#include "Collector/Interfaces/ICollector.h"
#include "Collector/WinEvents/Export.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Pool.h"

#include <memory>

namespace collector::win_events
{
// A new collector whose updates run on `threadPool` and whose cancellation token is a child of
// `token` (cancelling the caller's token cancels everything the collector runs).
NATC_COLLECTOR_API std::shared_ptr<collector::ni::ICollector> create_collector(
  pool threadPool, std::shared_ptr<ICancellationToken> token);
} // namespace collector::win_events
