// The Event Log API as the event collection uses it: EvtQuery + EvtNext + EvtRender (two-call
// size protocol) over the sample logs, and the cost of a periodic update — a query bounded by
// EventRecordID over a large log written by our writer, with 100 new events and with none.
//
//   scripts/build.sh release --target bench_wevtapi && build/bench/wevtapi/bench_wevtapi
// Rates are per CPU second (the machine is shared; wall time says little).
#include "Platform/WinEvt.h"

#include "Evtx/Writer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{
namespace fs = std::filesystem;

struct HandleCloser
{
  void operator()(void* handle) const
  {
    if (handle != nullptr)
      EvtClose(handle);
  }
};
using Handle = std::unique_ptr<void, HandleCloser>;

// A host directory removed at exit.
class TempDir
{
public:
  TempDir()
  {
    std::string pattern = (fs::temp_directory_path() / "natc-bench-wevtapi-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~TempDir()
  {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const fs::path& Path() const { return path_; }

private:
  fs::path path_;
};

Handle OpenSession(const fs::path& directory)
{
  std::wstring server = directory.wstring();
  EVT_RPC_LOGIN login{server.data(), nullptr, nullptr, nullptr, EvtRpcLoginAuthNegotiate};
  return Handle(EvtOpenSession(EvtRpcLogin, &login, 0, 0));
}

struct Totals
{
  std::size_t events = 0;
  std::size_t xmlBytes = 0;
};

// Reads and renders every event of a query, as the collection does.
void Drain(EVT_HANDLE query, std::vector<wchar_t>& buffer, Totals& totals)
{
  EVT_HANDLE events[64];
  DWORD returned = 0;
  while (EvtNext(query, 64, events, INFINITE, 0, &returned))
  {
    for (DWORD i = 0; i < returned; ++i)
    {
      DWORD used = 0, properties = 0;
      if (!EvtRender(nullptr, events[i], EvtRenderEventXml, static_cast<DWORD>(buffer.size() * sizeof(wchar_t)),
                     buffer.data(), &used, &properties) &&
          GetLastError() == ERROR_INSUFFICIENT_BUFFER)
      {
        buffer.resize(used / sizeof(wchar_t));
        EvtRender(nullptr, events[i], EvtRenderEventXml, used, buffer.data(), &used, &properties);
      }
      benchmark::DoNotOptimize(buffer.data());
      totals.xmlBytes += used;
      ++totals.events;
      EvtClose(events[i]);
    }
  }
}

fs::path SamplesDir()
{
  const char* shared = std::getenv("NATC_SHARED_DIR");
  return fs::path(shared != nullptr && *shared != '\0' ? shared : NATC_SHARED_DIR) / "samples" / "evtx";
}

// Every sample linked under its own channel "Bench/N" (several samples share a real channel).
struct SampleHost
{
  TempDir dir;
  std::vector<std::wstring> channels;
  std::size_t fileBytes = 0;

  SampleHost()
  {
    std::vector<fs::path> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(SamplesDir(), error))
      if (entry.path().extension() == ".evtx")
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (std::size_t i = 0; i < files.size(); ++i)
    {
      fs::create_symlink(files[i], dir.Path() / ("Bench%4" + std::to_string(i) + ".evtx"));
      channels.push_back(L"Bench/" + std::to_wstring(i));
      fileBytes += fs::file_size(files[i]);
    }
  }
};

void BM_QueryRenderSamples(benchmark::State& state)
{
  static SampleHost host;
  if (host.channels.empty())
  {
    state.SkipWithError("no samples");
    return;
  }
  Handle session = OpenSession(host.dir.Path());
  std::vector<wchar_t> buffer(16384);
  Totals totals;
  for (auto _ : state)
  {
    for (const std::wstring& channel : host.channels)
    {
      Handle query(EvtQuery(session.get(), channel.c_str(), L"*", EvtQueryChannelPath | EvtQueryForwardDirection));
      if (query)
        Drain(query.get(), buffer, totals);
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * host.fileBytes));
  state.counters["events/s"] = benchmark::Counter(static_cast<double>(totals.events), benchmark::Counter::kIsRate);
  state.counters["events"] = static_cast<double>(totals.events) / static_cast<double>(state.iterations());
  state.counters["xml_MB/s"] = benchmark::Counter(static_cast<double>(totals.xmlBytes) / 1e6, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_QueryRenderSamples)->Unit(benchmark::kMillisecond);

// A large live log: kLargeEvents events in many chunks.
constexpr int kLargeEvents = 200000;

struct LargeHost
{
  TempDir dir;
  std::uint64_t lastRecordId = 0;
  std::size_t fileBytes = 0;

  LargeHost()
  {
    const fs::path path = dir.Path() / "Application.evtx";
    evtx::Writer writer;
    std::string error;
    if (!writer.Create(path.string(), &error))
      throw std::runtime_error(error);
    for (int i = 1; i <= kLargeEvents; ++i)
    {
      evtx::WriterEvent event;
      event.provider = "Natc-Bench";
      event.eventId = static_cast<std::uint16_t>(1000 + i % 7);
      event.data.push_back({"Index", evtx::WriterValue::Text(std::to_string(i))});
      event.data.push_back({"Message", evtx::WriterValue::Text("the quick brown fox jumps over the lazy dog")});
      event.data.push_back({"Count", evtx::WriterValue::Int(evtx::ValueType::UInt32, i)});
      lastRecordId = writer.Append(event);
    }
    writer.Close();
    fileBytes = fs::file_size(path);
  }
};

const LargeHost& Large()
{
  static const LargeHost host;
  return host;
}

// One periodic update: the records after a bookmark `newEvents` back from the end.
void BM_IncrementalQuery(benchmark::State& state)
{
  const LargeHost& host = Large();
  const auto newEvents = static_cast<std::uint64_t>(state.range(0));
  Handle session = OpenSession(host.dir.Path());
  const std::wstring xpath =
    L"*[System[(EventRecordID>" + std::to_wstring(host.lastRecordId - newEvents) + L")]]";
  std::vector<wchar_t> buffer(16384);
  Totals totals;
  for (auto _ : state)
  {
    Handle query(EvtQuery(session.get(), L"Application", xpath.c_str(), EvtQueryChannelPath | EvtQueryForwardDirection));
    if (!query)
    {
      state.SkipWithError("EvtQuery failed");
      return;
    }
    Drain(query.get(), buffer, totals);
  }
  if (totals.events != state.iterations() * newEvents)
    state.SkipWithError("wrong number of events");
  state.counters["log_events"] = kLargeEvents;
  state.counters["log_MB"] = static_cast<double>(host.fileBytes) / 1e6;
  state.counters["events"] = static_cast<double>(totals.events) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_IncrementalQuery)->Arg(100)->Arg(0)->Unit(benchmark::kMicrosecond);

// For scale: the same log read whole.
void BM_FullQueryLargeLog(benchmark::State& state)
{
  const LargeHost& host = Large();
  Handle session = OpenSession(host.dir.Path());
  std::vector<wchar_t> buffer(16384);
  Totals totals;
  for (auto _ : state)
  {
    Handle query(EvtQuery(session.get(), L"Application", L"*", EvtQueryChannelPath | EvtQueryForwardDirection));
    if (query)
      Drain(query.get(), buffer, totals);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * host.fileBytes));
  state.counters["events/s"] = benchmark::Counter(static_cast<double>(totals.events), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FullQueryLargeLog)->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
