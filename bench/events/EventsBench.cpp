// The whole path of a "WindowsEvents" update on one thread over the sample logs: query, render,
// DOM, record, subscriber. Every sample file is a channel of one temporary host; each iteration
// is a fresh collection's first update, which reads every event of every channel. The same run
// measures libevtx's `evtxexport -f xml` on the same files (CPU time of the child processes),
// then alternates the two for NATC_RATIO_ROUNDS rounds (default 7) and prints their ratio.
//   build/bench/events/bench_events [--benchmark_min_time=2]
// Rates are per CPU second of the process (the machine is shared; wall time means little);
// allocs_per_event counts operator new calls of the whole update (all threads) per event.
#include "EventCollection.h"

#include "../records/CountingAllocator.h"

#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IUser.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Logger.h"
#include "Log.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace
{
using collector::ni::ICollectionTypes;
using collector::ni::impl::CEventCollection;
using collector::ni::win_events::SFilter;

std::filesystem::path SamplesDirectory()
{
  if (const char* configured = std::getenv("NATC_SHARED_DIR"))
    return std::filesystem::path(configured) / "samples" / "evtx";
  return std::filesystem::path(NATC_SHARED_DIR) / "samples" / "evtx";
}

// Every sample file linked into one host directory as channel "Bench/N".
class CSampleHost
{
public:
  CSampleHost()
  {
    std::string pattern = (std::filesystem::temp_directory_path() / "natc-events-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("mkdtemp failed");
    m_path = pattern;
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(SamplesDirectory()))
      if (entry.path().extension() == ".evtx")
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (std::size_t i = 0; i < files.size(); ++i)
    {
      std::filesystem::create_symlink(files[i], m_path / ("Bench%4" + std::to_string(i) + ".evtx"));
      m_channels.push_back(L"Bench/" + std::to_wstring(i));
      m_files.push_back(files[i].string());
      m_bytes += std::filesystem::file_size(files[i]);
    }
  }
  ~CSampleHost()
  {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  CSampleHost(const CSampleHost&) = delete;
  CSampleHost& operator=(const CSampleHost&) = delete;

  const std::filesystem::path& Path() const { return m_path; }
  const std::vector<std::wstring>& Channels() const { return m_channels; }
  const std::vector<std::string>& Files() const { return m_files; }
  std::uintmax_t Bytes() const { return m_bytes; }

private:
  std::filesystem::path m_path;
  std::vector<std::wstring> m_channels;
  std::vector<std::string> m_files;
  std::uintmax_t m_bytes = 0;
};

class CHost : public collector::ni::IHost
{
public:
  explicit CHost(std::wstring name) : m_name(std::move(name)) {}
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return m_name; }

private:
  std::wstring m_name;
};

class CUser : public collector::ni::IUser
{
public:
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return L".\\bench"; }
  tstring GetDomain() const override { return L"."; }
  tstring GetUserName() const override { return L"bench"; }
  tstring GetPassword() const override { return {}; }
};

class CClass : public collector::ni::IClass
{
public:
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return L"WindowsEvents"; }
};

// Looks at each record the way a consumer would (one lookup) and counts it.
class CCountingSubscriber : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, ICollectionTypes::Records records) override
  {
    for (const auto& record : records)
      benchmark::DoNotOptimize(record->FindField(L"EventCode"));
    count += records.size();
  }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState&) override {}
  std::size_t count = 0;
};

class CBenchCollection : public CEventCollection
{
public:
  using CEventCollection::CEventCollection;
  void UpdateOnce() { updateImpl(); }
};

// One fresh collection's first update over every channel of the host: the events delivered.
class CUpdateRunner
{
public:
  explicit CUpdateRunner(const CSampleHost& host)
    : m_hostObject(std::make_shared<CHost>(host.Path().wstring()))
  {
    for (const auto& channel : host.Channels())
      m_filters.push_back(SFilter{channel, L"", 0, {}});
  }

  std::size_t Run()
  {
    auto collection = std::make_shared<CBenchCollection>(m_log, m_pool, m_token, m_hostObject, m_user, m_class);
    auto subscriber = std::make_shared<CCountingSubscriber>();
    collection->Subscribe(subscriber);
    std::vector<SFilter> filters = m_filters;
    collection->SetFilter(filters);
    collection->UpdateOnce();
    return subscriber->count;
  }

private:
  std::shared_ptr<CLog> m_log = std::make_shared<CLog>(nullptr, L"[Bench]");
  pool m_pool{1};
  std::shared_ptr<ICancellationToken> m_token = create_cancellation();
  std::shared_ptr<CHost> m_hostObject;
  std::shared_ptr<CUser> m_user = std::make_shared<CUser>();
  std::shared_ptr<CClass> m_class = std::make_shared<CClass>();
  std::vector<SFilter> m_filters;
};

const CSampleHost& Host()
{
  static const CSampleHost host;
  return host;
}

void BM_WindowsEventsUpdate(benchmark::State& state)
{
  const CSampleHost& host = Host();
  CUpdateRunner runner(host);
  std::size_t events = 0;
  const std::uint64_t allocations = bench::AllocationCount();
  for (auto _ : state)
    events += runner.Run();
  state.counters["allocs_per_event"] =
    static_cast<double>(bench::AllocationCount() - allocations) / static_cast<double>(events == 0 ? 1 : events);
  state.counters["events_per_s"] = benchmark::Counter(static_cast<double>(events), benchmark::Counter::kIsRate);
  state.counters["events"] = static_cast<double>(events) / static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(host.Bytes() * state.iterations()));
}
BENCHMARK(BM_WindowsEventsUpdate)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->MinTime(2.0);

double ChildrenCpuSeconds()
{
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

bool HaveEvtxexport()
{
  return std::system("command -v evtxexport >/dev/null 2>&1") == 0;
}

// evtxexport -f xml over every sample file once: its CPU seconds (the children's), and the
// "<Event " lines of its output added to events.
double EvtxexportRound(const CSampleHost& host, std::size_t& events)
{
  double seconds = 0;
  for (const auto& file : host.Files())
  {
    const double before = ChildrenCpuSeconds();
    const std::string command = "evtxexport -f xml '" + file + "' 2>/dev/null";
    FILE* output = popen(command.c_str(), "r");
    if (output == nullptr)
      continue;
    char line[4096];
    while (std::fgets(line, sizeof(line), output) != nullptr)
      events += std::strncmp(line, "<Event ", 7) == 0 ? 1 : 0;
    pclose(output);
    seconds += ChildrenCpuSeconds() - before;
  }
  return seconds;
}

void BM_Evtxexport(benchmark::State& state)
{
  const CSampleHost& host = Host();
  if (!HaveEvtxexport())
  {
    state.SkipWithError("evtxexport (libevtx-utils) is not installed");
    return;
  }
  std::size_t events = 0;
  for (auto _ : state)
    state.SetIterationTime(EvtxexportRound(host, events));
  state.counters["events"] = static_cast<double>(events) / static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(host.Bytes() * state.iterations()));
  state.counters["events_per_s"] = benchmark::Counter(static_cast<double>(events), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Evtxexport)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);

double ThreadCpuSeconds()
{
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The ratio of the two readers' rates, measured in alternating rounds so that both see the same
// machine: on a shared machine the load changes from one second to the next, and rates measured
// minutes apart are not comparable. Prints each round and the median ratio.
void PrintInterleavedRatio(int rounds)
{
  const CSampleHost& host = Host();
  CUpdateRunner runner(host);
  runner.Run(); // warm the page cache and the allocator like the timed runs
  std::vector<double> ratios;
  double ourSeconds = 0, theirSeconds = 0;
  std::size_t ourEvents = 0, theirEvents = 0;
  for (int round = 0; round < rounds; ++round)
  {
    const double start = ThreadCpuSeconds();
    const std::size_t ours = runner.Run();
    const double our = ThreadCpuSeconds() - start;
    std::size_t theirs = 0;
    const double their = EvtxexportRound(host, theirs);
    if (our <= 0 || their <= 0 || theirs == 0)
      continue;
    ourSeconds += our;
    theirSeconds += their;
    ourEvents += ours;
    theirEvents += theirs;
    ratios.push_back((static_cast<double>(ours) / our) / (static_cast<double>(theirs) / their));
    std::printf("round %d: WindowsEvents %.0f events/s, evtxexport %.0f events/s, ratio %.1fx\n", round + 1,
                static_cast<double>(ours) / our, static_cast<double>(theirs) / their, ratios.back());
  }
  if (ratios.empty())
    return;
  std::sort(ratios.begin(), ratios.end());
  std::printf("WindowsEvents update: %.0f events/s; evtxexport -f xml: %.0f events/s; median ratio of %zu "
              "interleaved rounds %.1fx (lowest %.1fx)\n",
              static_cast<double>(ourEvents) / ourSeconds, static_cast<double>(theirEvents) / theirSeconds,
              ratios.size(), ratios[ratios.size() / 2], ratios.front());
}
} // namespace

int main(int argc, char** argv)
{
  // The collection's log lines would only measure the console.
  CKeldaLogger::instance().useStderr(false);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  if (HaveEvtxexport())
  {
    const char* configured = std::getenv("NATC_RATIO_ROUNDS");
    PrintInterleavedRatio(configured != nullptr ? std::max(1, std::atoi(configured)) : 7);
  }
  benchmark::Shutdown();
  return 0;
}
