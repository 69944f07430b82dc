// One instance pulled from a CMiInstanceOperation: reads its properties by name into CMiValue.
// It holds the operation open, but the API reuses the instance's memory at the next pull, so
// read an instance before pulling the next one.
//   CMiValue value;
//   instance.Get(L"Caption", value);   // throws CMiException "MI_Instance_GetElement (...)"
#pragma once

#include "MiOperation.h"
#include "MiValue.h"

#include "Platform/Mi.h"

#include <memory>
#include <string_view>

class CMiInstance
{
public:
  // The empty instance: what a pull returns when the results have ended.
  CMiInstance() noexcept = default;
  CMiInstance(std::shared_ptr<CMiOperationHandle> handle, const MI_Instance& instance) noexcept;

  bool IsEmpty() const noexcept { return m_instance.ft == nullptr; }
  const MI_Instance& GetRaw() const noexcept { return m_instance; }

  // Number of properties the instance carries.
  unsigned __int64 GetCount() const;
  // Reads one property into `value` and finds its declaration (exact, case-sensitive name). The
  // name's data goes to the API as a NUL-terminated string: pass a view over a whole string.
  CMiValue& Get(std::wstring_view name, CMiValue& value) const;
  // Whether the instance's class declares a property of that name (exact, case-sensitive),
  // whether or not the query selected it.
  bool Declares(std::wstring_view name) const noexcept;

private:
  std::shared_ptr<CMiOperationHandle> m_handle;
  MI_Instance m_instance{};
};
