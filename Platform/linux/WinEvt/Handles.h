// The objects behind EVT_HANDLEs (sessions, result sets, events, publisher metadata) and the
// table of live handles, so that a stale or foreign handle fails with ERROR_INVALID_HANDLE
// instead of crashing.
#pragma once

#include "Platform/WinEvt.h"

#include <memory>
#include <type_traits>
#include <typeinfo>

namespace natc::winevt
{
class EvtObject
{
public:
  virtual ~EvtObject() = default;
};

// Adds the object to the table and returns its handle (an opaque value, not its address).
EVT_HANDLE Register(std::shared_ptr<EvtObject> object);
// The object of a live handle when it is a T, else null.
std::shared_ptr<EvtObject> FindObject(EVT_HANDLE handle);
template <class T>
std::shared_ptr<T> Find(EVT_HANDLE handle)
{
  std::shared_ptr<EvtObject> object = FindObject(handle);
  // A final class is told by its type alone, cheaper than a cast: this runs for every event.
  if constexpr (std::is_final_v<T>)
  {
    if (!object || typeid(*object) != typeid(T))
      return nullptr;
    return std::static_pointer_cast<T>(std::move(object));
  }
  else
  {
    return std::dynamic_pointer_cast<T>(std::move(object));
  }
}
// Removes the handle; false when it is not live.
bool Unregister(EVT_HANDLE handle);
} // namespace natc::winevt
