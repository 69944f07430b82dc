// natc demo [--seconds N] [--debug]: runs two collections with a trivial update on the pool
// (period 1 s), prints their state changes and log lines, then stops them and waits.
// A stand-in main job that shows the collection life cycle until the real collector runs.
#include "CommandRegistry.h"
#include "common/Arguments.h"

#include "CollectionBase.h"
#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IHost.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Logger.h"
#include "KeldaKernel/Pool.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fmt/xchar.h>
#include <stdexcept>
#include <thread>

namespace
{
using collector::ni::ICollectionTypes;
using collector::ni::impl::CCollectionBase;

// The demo's host and classes: a name and nothing else.
template <class TInterface>
class CNamed final : public TInterface
{
public:
  explicit CNamed(tstring name) : m_name(std::move(name)) {}
  GUID GetId() const override { return GUID_NULL; }
  tstring GetName() const override { return m_name; }

private:
  tstring m_name;
};
using CDemoHost = CNamed<collector::ni::IHost>;
using CDemoClass = CNamed<collector::ni::IClass>;

// Each update only counts and logs; the second collection fails every third update to show
// the Error state and the recovery to Running.
class CDemoCollection : public CCollectionBase
{
public:
  CDemoCollection(const std::shared_ptr<CLog>& log, const pool& threadPool, const std::shared_ptr<ICancellationToken>& token,
                  const std::shared_ptr<collector::ni::IHost>& host, const std::shared_ptr<collector::ni::IClass>& cls,
                  bool failSometimes)
    : CCollectionBase(log, threadPool, token, host, nullptr, cls), m_failSometimes(failSometimes)
  {
  }

protected:
  void updateImpl() override
  {
    const int pass = ++m_passes;
    log()->Info(fmt::format(L"Update pass {}", pass));
    if (m_failSometimes && pass % 3 == 0)
    {
      throw std::runtime_error("demo failure on every third pass");
    }
  }

private:
  bool m_failSometimes;
  std::atomic<int> m_passes{0};
};

class CPrintingSubscriber : public ICollectionTypes::ISubscriber
{
public:
  explicit CPrintingSubscriber(std::wstring name) : m_name(std::move(name)) {}
  void OnRecords(const GUID&, ICollectionTypes::Records records) override
  {
    std::printf("%s: %zu record(s)\n", kelda::ToUtf8(m_name).c_str(), records.size());
  }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState& state) override
  {
    std::printf("%s: state %s %s\n", kelda::ToUtf8(m_name).c_str(),
                kelda::ToUtf8(CCollectionBase::StateWord(state.GetState())).c_str(),
                kelda::ToUtf8(state.GetDescription()).c_str());
    std::fflush(stdout);
  }

private:
  std::wstring m_name;
};

// Log lines on stdout next to the state changes, in the order they happen, instead of on
// stderr, for as long as the demo runs.
class CStdoutSink : public ILogSink
{
public:
  void write(ELogLevel, std::wstring_view line) override
  {
    std::printf("log: %s\n", kelda::ToUtf8(line).c_str());
    std::fflush(stdout);
  }
};

class CLogOnStdout
{
public:
  explicit CLogOnStdout(ELogLevel level) : m_sink(std::make_shared<CStdoutSink>())
  {
    CKeldaLogger::instance().useStderr(false);
    CKeldaLogger::instance().addSink(m_sink);
    CKeldaLogger::instance().setLevel(level);
  }
  ~CLogOnStdout()
  {
    CKeldaLogger::instance().removeSink(m_sink);
    CKeldaLogger::instance().useStderr(true);
  }
  CLogOnStdout(const CLogOnStdout&) = delete;
  CLogOnStdout& operator=(const CLogOnStdout&) = delete;

private:
  std::shared_ptr<CStdoutSink> m_sink;
};

int RunDemo(const std::vector<std::string>& arguments)
{
  int seconds = 5;
  bool debug = false;
  for (std::size_t i = 0; i < arguments.size(); ++i)
  {
    if (arguments[i] == "--seconds" && i + 1 < arguments.size())
    {
      seconds = static_cast<int>(natc::ParseNumber("--seconds", arguments[++i], 0, 86400));
    }
    else if (arguments[i] == "--debug")
    {
      debug = true;
    }
    else
    {
      throw natc::CUsageError(arguments[i] == "--seconds" ? "--seconds needs a value"
                                                          : natc::UnknownOption(arguments[i]));
    }
  }

  const CLogOnStdout logOnStdout(debug ? ELogLevel::Debug : ELogLevel::Info);

  pool threadPool(2);
  const auto root = create_cancellation();
  const auto log = std::make_shared<CLog>(nullptr, L"[NatC]");
  const auto host = std::make_shared<CDemoHost>(L"localhost");
  const std::shared_ptr<CDemoCollection> collections[] = {
    std::make_shared<CDemoCollection>(log, threadPool, root, host, std::make_shared<CDemoClass>(L"DemoSteady"), false),
    std::make_shared<CDemoCollection>(log, threadPool, root, host, std::make_shared<CDemoClass>(L"DemoFlaky"), true),
  };
  for (const auto& collection : collections)
  {
    collection->Subscribe(std::make_shared<CPrintingSubscriber>(collection->GetName()));
    collection->SetUpdatePeriod(1);
    collection->Run();
  }
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  for (const auto& collection : collections)
  {
    // A collection still Starting ignores Stop until its first update has run; Stop(true)
    // waits for that update, so the second request finds it Running.
    for (int attempt = 0; attempt < 2 && collection->GetState() != ICollectionTypes::Stopped; ++attempt)
    {
      collection->Stop(true);
    }
  }
  int failures = 0;
  for (const auto& collection : collections)
  {
    failures += collection->GetState() == ICollectionTypes::Stopped ? 0 : 1;
  }
  return failures == 0 ? 0 : 1;
}

NatcCommand demoCommand{"demo", "run two demo collections for a few seconds and show their life cycle",
                        "usage: natc demo [--seconds N] [--debug]\n"
                        "  --seconds N  how long the demo collections run (default 5)\n"
                        "  --debug      show debug log lines as well\n",
                        &RunDemo};
} // namespace
