#include "common/LibraryCollection.h"

#include "Collector/WinEvents/CreateCollector.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Strings.h"

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
