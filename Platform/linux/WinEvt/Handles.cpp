#include "Handles.h"

#include <mutex>
#include <unordered_map>

namespace natc::winevt
{
namespace
{
struct HandleTable
{
  std::mutex lock;
  std::unordered_map<EVT_HANDLE, std::shared_ptr<EvtObject>> objects;
};

HandleTable& Table()
{
  static HandleTable table;
  return table;
}
} // namespace

EVT_HANDLE Register(std::shared_ptr<EvtObject> object)
{
  EVT_HANDLE handle = object.get();
  HandleTable& table = Table();
  const std::lock_guard guard(table.lock);
  table.objects.emplace(handle, std::move(object));
  return handle;
}

std::shared_ptr<EvtObject> FindObject(EVT_HANDLE handle)
{
  HandleTable& table = Table();
  const std::lock_guard guard(table.lock);
  const auto found = table.objects.find(handle);
  return found == table.objects.end() ? nullptr : found->second;
}

bool Unregister(EVT_HANDLE handle)
{
  std::shared_ptr<EvtObject> object;
  HandleTable& table = Table();
  {
    const std::lock_guard guard(table.lock);
    const auto found = table.objects.find(handle);
    if (found == table.objects.end())
      return false;
    object = std::move(found->second);
    table.objects.erase(found);
  }
  // The object is destroyed here, outside the table's lock.
  return true;
}
} // namespace natc::winevt

BOOL EvtClose(EVT_HANDLE object) noexcept
{
  if (object == nullptr || !natc::winevt::Unregister(object))
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return TRUE;
}
