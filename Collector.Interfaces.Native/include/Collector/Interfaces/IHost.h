// Hosts the caller wants to watch (a computer name under an identifier) and their pool.
// Usage: auto host = collector->GetHostPool()->Create(L"server01"); task pool Deploy(host->GetId()...)
#pragma once

#include "Collector/Interfaces/IObject.h"
#include "KeldaKernel/Strings.h"
#include "Platform/Windows.h"

#include <memory>
#include <string_view>

namespace collector::ni
{
class IHost : public IObject
{
public:
  virtual GUID GetId() const = 0;
  virtual tstring GetName() const = 0;
};

class IHostPool : public IObject
{
public:
  // A host with a fresh identifier; an empty name is refused with E_INVALIDARG.
  virtual std::shared_ptr<IHost> Create(std::wstring_view name) = 0;
  // The host under GUID_NULL, replacing any earlier default host; any name is accepted.
  virtual std::shared_ptr<IHost> CreateDefault(std::wstring_view name) = 0;
  // The host, or an empty pointer when the identifier is unknown.
  virtual std::shared_ptr<IHost> Get(GUID id) = 0;
};
} // namespace collector::ni
