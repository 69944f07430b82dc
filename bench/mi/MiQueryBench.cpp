// Cost of one MI query through the public API: start it, pull every instance, read every element.
// Reports time per query (the benchmark's own time), instances per query, and the heap bytes that
// the finished results hold per instance (measured right after the query starts, before any pull).
//   build/bench/mi/bench_mi [--benchmark_filter=Machine]
#include "Platform/Mi.h"

#include "Cim/Testing/ClassBuilder.h"
#include "Cim/Testing/TestHost.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <string>

namespace
{
// Bytes the allocator has handed out and not yet taken back, process-wide.
long long LiveHeapBytes() { return static_cast<long long>(mallinfo2().uordblks); }
} // namespace

namespace
{
struct Measure
{
  long long instances = 0;
  long long held = 0;
  MI_Result error = MI_RESULT_OK;
};

Measure RunQuery(MI_Session& session, const wchar_t* query)
{
  Measure measure;
  const long long liveBefore = LiveHeapBytes();
  MI_Operation operation = MI_OPERATION_NULL;
  MI_Session_QueryInstances(&session, 0, nullptr, L"root/cimv2", L"WQL", query, nullptr, &operation);
  measure.held = LiveHeapBytes() - liveBefore;
  MI_Boolean more = MI_TRUE;
  while (more)
  {
    const MI_Instance* instance = nullptr;
    MI_Result result = MI_RESULT_OK;
    if (MI_Operation_GetInstance(&operation, &instance, &more, &result, nullptr, nullptr) != MI_RESULT_OK)
      break;
    if (result != MI_RESULT_OK)
      measure.error = result;
    if (!instance)
      continue;
    ++measure.instances;
    MI_Uint32 count = 0;
    MI_Instance_GetElementCount(instance, &count);
    for (MI_Uint32 i = 0; i < count; ++i)
    {
      const MI_Char* name = nullptr;
      MI_Value value;
      MI_Type type;
      MI_Uint32 flags;
      MI_Instance_GetElementAt(instance, i, &name, &value, &type, &flags);
      benchmark::DoNotOptimize(value);
    }
  }
  MI_Operation_Close(&operation);
  return measure;
}

void RunBenchmark(benchmark::State& state, const wchar_t* destination, const wchar_t* query)
{
  MI_Application application = MI_APPLICATION_NULL;
  MI_Application_InitializeV1(0, nullptr, nullptr, &application);
  MI_Session session = MI_SESSION_NULL;
  if (MI_Application_NewSession(&application, L"WMIDCOM", destination, nullptr, nullptr, nullptr, &session) !=
      MI_RESULT_OK)
  {
    state.SkipWithError("no session");
    MI_Application_Close(&application);
    return;
  }
  Measure last;
  for (auto _ : state)
  {
    last = RunQuery(session, query);
    if (last.error != MI_RESULT_OK)
    {
      state.SkipWithError(("query failed with MI result " + std::to_string(last.error)).c_str());
      break;
    }
  }
  if (last.instances > 0)
  {
    state.counters["instances"] = static_cast<double>(last.instances);
    state.counters["held_B_per_inst"] = static_cast<double>(last.held) / static_cast<double>(last.instances);
  }
  MI_Session_Close(&session, nullptr, nullptr);
  MI_Application_Close(&application);
}

// A synthetic class of ten properties and 200 instances, independent of this machine.
void BM_TestHost(benchmark::State& state)
{
  cim::testing::TestHost host(L"benchhost");
  cim::testing::ClassBuilder builder(L"Bench_Item");
  builder.Key(L"Name");
  for (int i = 0; i < 9; ++i)
    builder.Property(L"Counter" + std::to_wstring(i), cim::Type::UInt64, {{L"CounterType", std::uint32_t{65792}}});
  auto provider = host.AddClass(builder.Build());
  for (int n = 0; n < 200; ++n)
  {
    auto& instance = provider->AddEmpty();
    instance.Set(L"Name", L"item" + std::to_wstring(n));
    for (int i = 0; i < 9; ++i)
      instance.Set(L"Counter" + std::to_wstring(i), static_cast<std::uint64_t>(n * i));
  }
  RunBenchmark(state, L"benchhost", L"SELECT * FROM Bench_Item");
}
BENCHMARK(BM_TestHost)->Unit(benchmark::kMicrosecond);

void BM_Machine(benchmark::State& state, const wchar_t* query) { RunBenchmark(state, L"localhost", query); }
BENCHMARK_CAPTURE(BM_Machine, PerfOS_Processor, L"SELECT * FROM Win32_PerfRawData_PerfOS_Processor")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Machine, PerfOS_Memory, L"SELECT * FROM Win32_PerfRawData_PerfOS_Memory")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Machine, PerfProc_Process, L"SELECT * FROM Win32_PerfRawData_PerfProc_Process")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Machine, Win32_Process, L"SELECT * FROM Win32_Process")->Unit(benchmark::kMicrosecond);
} // namespace

BENCHMARK_MAIN();
