// Cost of a large collector: 1,000 hosts, 1,000 tasks, 3,000 collections ("WindowsEvents" over
// the demo logs, named as this machine's logs by NATC_EVENT_LOG_DIR; "MiProp" and "MiPerf" over
// this machine), everything made through
// create_collector and the pools and configured through the init interfaces.
//   BM_BuildAndStop/0  - build, then Stop(true) with nothing running;
//   BM_BuildAndStop/1  - build, Run every collection, then Stop(true) (which waits for every
//                        first update: one event query, one WQL query or one counter load each).
// Counters: time_per_collection (build + run + stop, wall clock, in seconds: 12.3u is 12.3 us)
// and bytes_per_collection (heap in use after building, per collection, before stopping).
#include "run/DemoLogs.h"

#include "Collector/Interfaces.h"
#include "Collector/WinEvents/CreateCollector.h"
#include "KeldaKernel/Logger.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <malloc.h>
#include <string>

namespace
{
using namespace collector::ni;

constexpr int hostCount = 1000;
constexpr int collectionsPerTask = 3;

long long LiveHeapBytes()
{
  return static_cast<long long>(mallinfo2().uordblks);
}

const std::wstring& LogDirectory()
{
  static const std::wstring directory = [] {
    const std::string path = (std::filesystem::temp_directory_path() / "natc-bench-collector-logs").string();
    natc::run::EnsureDemoLogs(path);
    return kelda::FromUtf8(path);
  }();
  return directory;
}

void Configure(ICollection& collection, int kind)
{
  dynamic_cast<ICollectionInit&>(collection).SetUpdatePeriod(60);
  if (kind == 0)
  {
    std::vector<win_events::SFilter> filters{{L"System", L"", 0, {}}};
    dynamic_cast<win_events::ICollectionInit&>(collection).SetFilter(filters);
  }
  else if (kind == 1)
  {
    dynamic_cast<mi::IMiCollectionInit&>(collection)
      .SetFilter({L"root/cimv2", L"Win32_OperatingSystem", L"", {L"Caption", L"FreePhysicalMemory"}});
  }
  else
  {
    dynamic_cast<performance::IMiPerfCollectionInit&>(collection)
      .SetCounterFilter({{L"Win32_PerfRawData_PerfOS_Memory", L"AvailableBytes", false, FieldValue(tstring(L"mem")), 1.0}});
  }
}

void BM_BuildAndStop(benchmark::State& state)
{
  const bool run = state.range(0) != 0;
  const wchar_t* types[collectionsPerTask] = {L"WindowsEvents", L"MiProp", L"MiPerf"};
  CKeldaLogger::instance().setLevel(ELogLevel::Off);
  setenv("NATC_EVENT_LOG_DIR", kelda::ToUtf8(LogDirectory()).c_str(), 1);
  double bytesPerCollection = 0;
  for (auto _ : state)
  {
    pool workers(4);
    const long long heapBefore = LiveHeapBytes();
    auto collector = collector::win_events::create_collector(workers, create_cancellation());
    auto user = collector->GetUserPool()->CreateDefault(L"", L"");
    std::vector<std::shared_ptr<ICollection>> collections;
    collections.reserve(static_cast<std::size_t>(hostCount) * collectionsPerTask);
    for (int h = 0; h < hostCount; ++h)
    {
      // 1,000 host objects, all this machine: its event logs are the demo directory.
      auto host = collector->GetHostPool()->Create(L"localhost");
      auto task = collector->GetTaskPool()->Deploy(L"task" + std::to_wstring(h), host->GetId(), user->GetId());
      for (int k = 0; k < collectionsPerTask; ++k)
      {
        auto collection = task->CreateCollection(types[k]);
        if (!collection)
        {
          state.SkipWithError("a collection type is not built in");
          return;
        }
        Configure(*collection, k);
        collections.push_back(std::move(collection));
      }
    }
    bytesPerCollection = static_cast<double>(LiveHeapBytes() - heapBefore) / static_cast<double>(collections.size());
    if (run)
    {
      for (const auto& collection : collections)
      {
        collection->Run();
      }
    }
    collector->Stop(true);
    for (const auto& collection : collections)
    {
      if (collection->GetState() != ICollectionTypes::Stopped)
      {
        state.SkipWithError("a collection did not end in Stopped");
        return;
      }
    }
  }
  const double collections = static_cast<double>(hostCount * collectionsPerTask);
  state.counters["time_per_collection"] = benchmark::Counter(
    collections * static_cast<double>(state.iterations()),
    benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["bytes_per_collection"] = bytesPerCollection;
}
BENCHMARK(BM_BuildAndStop)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
} // namespace

BENCHMARK_MAIN();
