// natc perf (--counter CLASS:COUNTER[:FACTOR])... [--period S] [--once|--updates N]
// Runs a "MiPerf" collection on this machine ("localhost") made through the library's factory,
// pools and task. Prints every counter record, every state change and
// every target record as JSON lines (class "MiPerf"); target records come from the target
// collection's identifier and carry their operation code as "type" (1 added, 3 removed).
// Counter records carry "t", "i", "v" and "id" (the target number); each target's "c" is the
// "CLASS:COUNTER" it was configured with. Rates need two samples, so they appear from the
// second update on. Without --once or --updates it runs until interrupted (Ctrl-C).
#include "CommandRegistry.h"

#include "common/CollectionLifetime.h"
#include "common/LibraryCollection.h"
#include "output/JsonLines.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Logger.h"
#include "KeldaKernel/Pool.h"

#include "common/Arguments.h"

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#  include <pthread.h>
#endif

namespace
{
using collector::ni::ICollectionTypes;
using CounterFilter = collector::ni::performance::IMiPerfCollectionInit::CounterFilter;

constexpr const char* usage =
  "usage: natc perf (--counter CLASS:COUNTER[:FACTOR])... [--period S] [--once|--updates N]\n"
  "  --counter  a raw counter to report, e.g. Win32_PerfRawData_PerfOS_Processor:PercentProcessorTime\n"
  "             (FACTOR multiplies the value; default 1)\n"
  "  --period   seconds between updates (default 1)\n"
  "  --once     one update (raw counts only: rates need two samples)\n"
  "  --updates  stop after N updates; without --once or --updates: until interrupted\n";

struct Options
{
  std::vector<CounterFilter> counters;
  int period = 1;
  std::optional<unsigned long> updates;
};

unsigned long ParseCount(const std::string& text, const char* what)
{
  return static_cast<unsigned long>(natc::ParseNumber(what, text, 1, 1000000000));
}

// "CLASS:COUNTER[:FACTOR]"; the target value is "CLASS:COUNTER".
CounterFilter ParseCounter(const std::string& text)
{
  const auto first = text.find(':');
  if (first == std::string::npos || first == 0)
    throw std::invalid_argument("--counter wants CLASS:COUNTER[:FACTOR], got '" + text + "'");
  const auto second = text.find(':', first + 1);
  const std::string className = text.substr(0, first);
  const std::string counter = text.substr(first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
  if (counter.empty())
    throw std::invalid_argument("--counter wants CLASS:COUNTER[:FACTOR], got '" + text + "'");
  double factor = 1.0;
  if (second != std::string::npos)
  {
    const std::string factorText = text.substr(second + 1);
    std::size_t used = 0;
    try
    {
      factor = std::stod(factorText, &used);
    }
    catch (const std::exception&)
    {
      used = 0;
    }
    if (used == 0 || used != factorText.size())
      throw std::invalid_argument("the factor of --counter '" + text + "' is not a number");
  }
  CounterFilter filter;
  filter.ClassName = kelda::FromUtf8(className);
  filter.CounterName = kelda::FromUtf8(counter);
  filter.TargetValue = kelda::FromUtf8(className + ":" + counter);
  filter.Factor = factor;
  return filter;
}

Options ParseOptions(const std::vector<std::string>& arguments)
{
  Options options;
  bool once = false;
  for (std::size_t i = 0; i < arguments.size(); ++i)
  {
    const std::string& argument = arguments[i];
    const auto value = [&]() -> const std::string& {
      if (i + 1 >= arguments.size())
        throw std::invalid_argument(argument + " needs a value");
      return arguments[++i];
    };
    if (argument == "--counter")
      options.counters.push_back(ParseCounter(value()));
    else if (argument == "--period")
      options.period = static_cast<int>(ParseCount(value(), "--period"));
    else if (argument == "--updates")
      options.updates = ParseCount(value(), "--updates");
    else if (argument == "--once")
      once = true;
    else
      throw std::invalid_argument(natc::UnknownOption(argument));
  }
  if (options.counters.empty())
    throw std::invalid_argument("at least one --counter is needed");
  if (once && options.updates)
    throw std::invalid_argument("--once and --updates exclude each other");
  if (once)
    options.updates = 1;
  return options;
}

// Counts the ends of updates: a successful one ends with the target collection's batch, a
// failed one with an Error state. At the last wanted one it closes the printer's gate, on the
// pool thread, before a further update can start. Also wakes the waiter on an interruption.
class CUpdateCounter : public ICollectionTypes::ISubscriber
{
public:
  CUpdateCounter(std::optional<unsigned long> limit, std::shared_ptr<CRecordGate> gate)
    : m_limit(limit), m_gate(std::move(gate))
  {
  }
  // The target collection whose batches end the updates; set before the collection runs.
  void Watch(const GUID& targetCollection) { m_targetCollection = targetCollection; }
  void OnRecords(const GUID& collectionId, ICollectionTypes::Records) override
  {
    if (collectionId == m_targetCollection)
      count();
  }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState& state) override
  {
    if (state.GetState() == ICollectionTypes::Error)
      count();
  }
  void Interrupt()
  {
    {
      const std::lock_guard lock(m_lock);
      m_interrupted = true;
    }
    m_changed.notify_all();
  }
  // Until the wanted updates have ended (or forever when no limit is given), or an interruption.
  void Wait()
  {
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [&] { return m_interrupted || (m_limit && m_updates >= *m_limit); });
  }

private:
  void count()
  {
    {
      const std::lock_guard lock(m_lock);
      ++m_updates;
      if (m_limit && m_updates >= *m_limit)
        m_gate->Close();
    }
    m_changed.notify_all();
  }

  GUID m_targetCollection{};
  const std::optional<unsigned long> m_limit;
  const std::shared_ptr<CRecordGate> m_gate;
  std::mutex m_lock;
  std::condition_variable m_changed;
  unsigned long m_updates = 0;
  bool m_interrupted = false;
};

#ifndef _WIN32
// Turns SIGINT and SIGTERM into an interruption of the wait. The signals are blocked before
// any other thread starts, so only this thread receives them.
class CSignalWaiter
{
public:
  explicit CSignalWaiter(CUpdateCounter& counter)
  {
    sigemptyset(&m_signals);
    sigaddset(&m_signals, SIGINT);
    sigaddset(&m_signals, SIGTERM);
    sigaddset(&m_signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
    m_thread = std::thread([this, &counter] {
      int received = 0;
      sigwait(&m_signals, &received);
      counter.Interrupt();
    });
  }
  ~CSignalWaiter()
  {
    // SIGUSR1 ends the waiter when no signal came.
    pthread_kill(m_thread.native_handle(), SIGUSR1);
    m_thread.join();
  }
  CSignalWaiter(const CSignalWaiter&) = delete;
  CSignalWaiter& operator=(const CSignalWaiter&) = delete;

private:
  sigset_t m_signals{};
  std::thread m_thread;
};
#endif

int RunPerf(const std::vector<std::string>& arguments)
{
  Options options;
  // A bad command line is a usage error, as for the other commands: the reason, a pointer at --help, 2.
  try
  {
    options = ParseOptions(arguments);
  }
  catch (const std::invalid_argument& error)
  {
    return natc::UsageError("perf", error.what());
  }

  auto printer = std::make_shared<natc::JsonLinePrinter>(L"MiPerf", stdout);
  const auto gate = std::make_shared<CRecordGate>(printer);
  auto counter = std::make_shared<CUpdateCounter>(options.updates, gate);
  // Before the pool starts, so that its threads inherit the blocked signals.
#ifndef _WIN32
  CSignalWaiter signals(*counter);
#endif
  CKeldaLogger::instance().useStderr(true);

  // The collection is made as a caller of the library makes it; the task gives it its own
  // target collection, published as "TargetCollectionId".
  const natc::SLibraryCollection made = natc::MakeLibraryCollection(pool(2), L"MiPerf", L"localhost", L"", L"");
  const auto& collection = made.collection;
  const auto targets = natc::FindTargetCollection(made);
  if (!targets)
  {
    throw std::runtime_error("the \"MiPerf\" collection publishes no target collection");
  }
  counter->Watch(targets->GetId());
  dynamic_cast<collector::ni::performance::IMiPerfCollectionInit&>(*collection).SetCounterFilter(options.counters);
  dynamic_cast<collector::ni::ICollectionInit&>(*collection).SetUpdatePeriod(options.period);

  collection->Subscribe(gate);
  targets->Subscribe(gate);
  // After the printer, so that an update's lines are out before it counts.
  collection->Subscribe(counter);
  targets->Subscribe(counter);

  collection->Run();
  counter->Wait();
  StopCollection(*collection);
  made.collector->Stop(true);
  gate->Flush();
  std::fflush(stdout);
  return 0;
}

NatcCommand perfCommand{"perf", "report raw performance counters of this machine (\"MiPerf\")", usage, &RunPerf};
} // namespace
