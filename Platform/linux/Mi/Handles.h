// How the Linux MI API keeps its objects behind the public handles: reserved1 holds a tag that
// names the kind of object, reserved2 the object's address. A handle whose tag does not match
// (zeroed, closed, or of another kind) is refused with MI_RESULT_INVALID_PARAMETER.
#pragma once

#include "Platform/Mi.h"

#include <cstdint>
#include <memory>

namespace platform::mi
{
enum Tag : MI_Uint64
{
  kApplicationTag = 0x4D49417070ULL,
  kSessionTag = 0x4D49536573ULL,
  kOptionsTag = 0x4D494F7074ULL,
  kOperationTag = 0x4D494F7065ULL,
};

template <class Object, class Handle>
Object* From(const Handle* handle, Tag tag)
{
  if (!handle || handle->reserved1 != tag || handle->reserved2 == 0)
    return nullptr;
  return reinterpret_cast<Object*>(handle->reserved2); // NOLINT(performance-no-int-to-ptr)
}

// Hands the object's ownership to the handle; Release takes it back when the handle closes.
template <class Object, class Handle, class Table>
void Attach(Handle* handle, Tag tag, std::unique_ptr<Object> object, const Table* table)
{
  handle->reserved1 = tag;
  handle->reserved2 = reinterpret_cast<ptrdiff_t>(object.release());
  handle->ft = table;
}

template <class Object, class Handle>
std::unique_ptr<Object> Release(Handle* handle, Tag tag)
{
  std::unique_ptr<Object> object(From<Object>(handle, tag));
  handle->reserved1 = 0;
  handle->reserved2 = 0;
  handle->ft = nullptr;
  return object;
}
} // namespace platform::mi
