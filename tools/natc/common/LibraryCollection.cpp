#include "common/LibraryCollection.h"

#include "common/CollectionLifetime.h"

#include "Collector/WinEvents/CreateCollector.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Strings.h"

#include <cstdio>
#include <stdexcept>

namespace natc
{
SLibraryCollection MakeLibraryCollection(pool workers, std::wstring_view type, const std::wstring& host,
                                         const std::wstring& account, const std::wstring& password)
{
  SLibraryCollection made;
  made.collector = collector::win_events::create_collector(std::move(workers), create_cancellation());
  const GUID hostId = made.collector->GetHostPool()->Create(host)->GetId();
  const GUID userId = made.collector->GetUserPool()->Create(account, password)->GetId();
  made.task = made.collector->GetTaskPool()->Deploy(L"natc", hostId, userId);
  made.collection = made.task->CreateCollection(type);
  if (!made.collection)
  {
    throw std::runtime_error("collection type \"" + kelda::ToUtf8(std::wstring(type)) +
                             "\" is not built into this natc");
  }
  return made;
}

int RunAndPrint(const SLibraryCollection& made,
                const std::shared_ptr<collector::ni::ICollectionTypes::ISubscriber>& printer, bool once,
                const CStopSignals& signals)
{
  using collector::ni::ICollectionTypes;
  collector::ni::ICollection& collection = *made.collection;
  // With once, the records of an update that starts before the stop are not printed.
  const auto gate = std::make_shared<CRecordGate>(printer);
  const auto firstUpdate = std::make_shared<CFirstUpdateWatcher>(once ? gate : nullptr);
  // The printer first: a state's line is out before the watcher wakes this thread.
  collection.Subscribe(gate);
  collection.Subscribe(firstUpdate);
  collection.Run();

  int status = 0;
  if (once)
  {
    status = firstUpdate->Wait() == ICollectionTypes::Running ? 0 : 1;
  }
  else
  {
    signals.WaitForStop(std::nullopt);
  }
  StopCollection(collection);
  made.collector->Stop(true);
  gate->Flush();
  std::fflush(stdout);
  return status;
}

std::shared_ptr<collector::ni::ICollection> FindTargetCollection(const SLibraryCollection& made)
{
  auto* properties = dynamic_cast<collector::ni::IProperties*>(made.collection.get());
  if (properties == nullptr)
  {
    return nullptr;
  }
  const collector::ni::FieldValue id = properties->GetProperty(L"TargetCollectionId");
  const auto* guid = std::get_if<GUID>(&id);
  return guid != nullptr ? made.task->GetCollection(*guid) : nullptr;
}
} // namespace natc
