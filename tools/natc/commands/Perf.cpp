// natc perf (--counter CLASS:COUNTER[:FACTOR])... [--period S] [--once|--updates N]
// Runs a "MiPerf" collection on this machine ("localhost") through the library's own objects:
// a host and a user from their pools, the class a task would register, the target collection
// a task shares, and an MI application. Prints every counter record, every state change and
// every target record as JSON lines (class "MiPerf"); target records come from the target
// collection's identifier and carry their operation code as "type" (1 added, 3 removed).
// Counter records carry "t", "i", "v" and "id" (the target number); each target's "c" is the
// "CLASS:COUNTER" it was configured with. Rates need two samples, so they appear from the
// second update on. Without --once or --updates it runs until interrupted (Ctrl-C).
#include "CommandRegistry.h"

#include "ClassPool.h"
#include "HostPool.h"
#include "MiApplication.h"
#include "MiPerformanceCollection.h"
#include "PerfTargetCollectoin.h"
#include "UserPool.h"
#include "common/CollectionLifetime.h"
#include "output/JsonLines.h"

#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Logger.h"
#include "KeldaKernel/Pool.h"

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
using collector::ni::impl::CMiPerformanceCollection;
using collector::ni::impl::CPerfTargetCollection;
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
  std::size_t used = 0;
  const long long value = std::stoll(text, &used);
  if (used != text.size() || value < 1 || value > 1000000000)
    throw std::invalid_argument(std::string(what) + " must be a whole number from 1");
  return static_cast<unsigned long>(value);
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
      throw std::invalid_argument("unknown argument '" + argument + "'");
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
  CUpdateCounter(const GUID& targetCollection, std::optional<unsigned long> limit, std::shared_ptr<CRecordGate> gate)
    : m_targetCollection(targetCollection), m_limit(limit), m_gate(std::move(gate))
  {
  }
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

  const GUID m_targetCollection;
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
  if (!arguments.empty() && (arguments[0] == "-h" || arguments[0] == "--help"))
  {
    std::fputs(usage, stdout);
    return 0;
  }
  Options options;
  // A bad command line is a usage error, as for the other commands: the reason, the usage, 2.
  try
  {
    options = ParseOptions(arguments);
  }
  catch (const std::invalid_argument& error)
  {
    std::fprintf(stderr, "natc perf: %s\n%s", error.what(), usage);
    return 2;
  }

  const auto targets = std::make_shared<CPerfTargetCollection>();
  auto printer = std::make_shared<natc::JsonLinePrinter>(L"MiPerf", stdout);
  const auto gate = std::make_shared<CRecordGate>(printer);
  auto counter = std::make_shared<CUpdateCounter>(targets->GetId(), options.updates, gate);
#ifndef _WIN32
  CSignalWaiter signals(*counter);
#endif
  CKeldaLogger::instance().useStderr(true);
  const pool threadPool(2);
  const auto cancellation = create_cancellation();
  const auto log = std::make_shared<CLog>(nullptr, L"[NatC]");

  // What a task holds: its host and user from the pools, a class per collection, the shared
  // target collection, the MI application.
  collector::ni::impl::CHostPool hosts;
  collector::ni::impl::CUserPool users;
  collector::ni::impl::CClassPool classes;
  const auto host = hosts.Create(L"localhost");
  const auto user = users.Create(L"", L"");
  GUID collectionId{};
  UuidCreate(&collectionId);
  const auto collectionClass = classes.Create(collectionId, L"MiPerf");

  auto collection = std::make_shared<CMiPerformanceCollection>(log, threadPool, cancellation, host, user,
                                                               collectionClass, targets);
  collection->SetApplication(CMiApplication::CreateInstance());
  collection->SetCounterFilter(options.counters);
  collection->SetUpdatePeriod(options.period);

  collection->Subscribe(gate);
  targets->Subscribe(gate);
  // After the printer, so that an update's lines are out before it counts.
  collection->Subscribe(counter);
  targets->Subscribe(counter);

  collection->Run();
  counter->Wait();
  collection->Stop(true);
  gate->Flush();
  std::fflush(stdout);
  classes.Remove(collectionId);
  return 0;
}

NatcCommand perfCommand{"perf", "report raw performance counters of this machine (\"MiPerf\")", &RunPerf};
} // namespace
