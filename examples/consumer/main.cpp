// A minimal caller of the collector library: makes a collector, a host and a user, deploys a
// task, reads Win32_OperatingSystem through a "MiProp" collection and prints what arrives.
//   collector_consumer [HOST]        (default: localhost)
// Exits with 0 once a record arrived and the collector stopped; 1 otherwise.
#include "Collector/Interfaces.h"
#include "Collector/WinEvents/CreateCollector.h"
#include "KeldaKernel/Exceptions.h"
#include "MiApplication.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

namespace
{
// Prints records and state changes, and lets main wait for the first record.
class CPrinter : public collector::ni::ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, collector::ni::ICollectionTypes::Records records) override
  {
    for (const auto& record : records)
    {
      if (auto* caption = record->FindField(L"Caption"))
      {
        std::printf("record: Caption=%s\n", kelda::ToUtf8(std::get<tstring>(caption->GetValue())).c_str());
      }
    }
    {
      const std::lock_guard lock(m_lock);
      m_records += records.size();
    }
    m_changed.notify_all();
  }

  void OnStateChanged(const GUID&, const collector::ni::ICollectionTypes::IState& state) override
  {
    std::printf("state: %d %s\n", static_cast<int>(state.GetState()), kelda::ToUtf8(state.GetDescription()).c_str());
  }

  bool WaitForRecords(std::chrono::seconds limit)
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, limit, [&] { return m_records > 0; });
  }

private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::size_t m_records = 0;
};
} // namespace

int main(int argc, char** argv)
{
  const std::wstring hostName = argc > 1 ? kelda::FromUtf8(argv[1]) : L"localhost";
  pool workers(2);
  auto collector = collector::win_events::create_collector(workers, create_cancellation());

  // GetState has no implementation: the exception crosses the library boundary intact.
  try
  {
    collector->GetState();
  }
  catch (const CHResultException& error)
  {
    std::printf("GetState: 0x%08X\n", static_cast<unsigned>(error.hresult()));
  }

  auto host = collector->GetHostPool()->Create(hostName);
  auto user = collector->GetUserPool()->CreateDefault(L"", L"");
  auto task = collector->GetTaskPool()->Deploy(L"consumer", host->GetId(), user->GetId());
  auto collection = task->CreateCollection(L"MiProp");
  auto init = std::dynamic_pointer_cast<collector::ni::mi::IMiCollectionInit>(collection);
  if (!init)
  {
    std::fprintf(stderr, "MiProp is not available\n");
    return 1;
  }
  // The task gives the collection an MI application of its own; a caller may hand it another.
  if (auto base = std::dynamic_pointer_cast<collector::ni::mi::IMiCollectionBaseInit>(collection))
  {
    base->SetApplication(CMiApplication::CreateInstance());
  }
  init->SetFilter({L"root/cimv2", L"Win32_OperatingSystem", L"", {L"Caption", L"Version"}});
  auto printer = std::make_shared<CPrinter>();
  collection->Subscribe(printer);
  collection->Run();
  const bool received = printer->WaitForRecords(std::chrono::seconds(30));
  collector->Stop(true);
  const bool stopped = collection->GetState() == collector::ni::ICollectionTypes::Stopped;
  std::printf("received: %s, stopped: %s\n", received ? "yes" : "no", stopped ? "yes" : "no");
  return received && stopped ? 0 : 1;
}
