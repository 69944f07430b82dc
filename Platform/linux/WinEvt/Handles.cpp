#include "Handles.h"

#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

namespace natc::winevt
{
namespace
{
// Handles are opaque values, as on Windows: a slot of the table and the slot's generation, so
// that a closed handle stays invalid after its slot serves another object, and a lookup is an
// index rather than a hash (each event is looked up several times).
static_assert(sizeof(std::uintptr_t) >= sizeof(std::uint64_t), "a handle holds a slot and its generation");

struct Slot
{
  std::shared_ptr<EvtObject> object;
  std::uint32_t generation = 0;
};

struct HandleTable
{
  std::mutex lock;
  std::vector<Slot> slots;
  std::vector<std::uint32_t> freeSlots;

  // The live slot a handle names, else null; with the lock held.
  Slot* Live(EVT_HANDLE handle)
  {
    const auto value = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(handle));
    const std::uint64_t index = (value & 0xFFFFFFFFu) - 1;
    if (index >= slots.size())
      return nullptr;
    Slot& slot = slots[index];
    if (slot.generation != static_cast<std::uint32_t>(value >> 32) || !slot.object)
      return nullptr;
    return &slot;
  }
};

HandleTable& Table()
{
  static HandleTable table;
  return table;
}

EVT_HANDLE MakeHandle(std::size_t index, std::uint32_t generation)
{
  // Slot numbers start at 1: no handle is null.
  const std::uint64_t value = (static_cast<std::uint64_t>(generation) << 32) | (static_cast<std::uint64_t>(index) + 1);
  return reinterpret_cast<EVT_HANDLE>(static_cast<std::uintptr_t>(value)); // NOLINT(performance-no-int-to-ptr)
}
} // namespace

EVT_HANDLE Register(std::shared_ptr<EvtObject> object)
{
  HandleTable& table = Table();
  const std::lock_guard guard(table.lock);
  std::size_t index = table.slots.size();
  if (table.freeSlots.empty())
  {
    if (index >= 0xFFFFFFFFu)
      throw std::bad_alloc();
    // Room for every slot in the free list, so that closing a handle never allocates.
    table.freeSlots.reserve(index + 1);
    table.slots.emplace_back();
  }
  else
  {
    index = table.freeSlots.back();
    table.freeSlots.pop_back();
  }
  Slot& slot = table.slots[index];
  slot.object = std::move(object);
  return MakeHandle(index, slot.generation);
}

std::shared_ptr<EvtObject> FindObject(EVT_HANDLE handle)
{
  HandleTable& table = Table();
  const std::lock_guard guard(table.lock);
  const Slot* slot = table.Live(handle);
  return slot == nullptr ? nullptr : slot->object;
}

bool Unregister(EVT_HANDLE handle)
{
  std::shared_ptr<EvtObject> object;
  HandleTable& table = Table();
  {
    const std::lock_guard guard(table.lock);
    Slot* slot = table.Live(handle);
    if (slot == nullptr)
      return false;
    object = std::move(slot->object);
    ++slot->generation;
    // Within the capacity Register reserved: no allocation, nothing can fail.
    table.freeSlots.push_back(static_cast<std::uint32_t>(slot - table.slots.data()));
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
