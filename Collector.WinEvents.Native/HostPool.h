// The hosts the caller watches: CHost (an immutable identifier and computer name) and the pool
// the collector hands out through GetHostPool().
#pragma once

#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/Impl/PoolBase.h"

#include <memory>
#include <string_view>

namespace collector::ni::impl
{
class CHost : public IHost
{
public:
  CHost(const GUID& id, std::wstring_view name) : m_id(id), m_name(name) {}

  GUID GetId() const override { return m_id; }
  tstring GetName() const override { return m_name; }

private:
  const GUID m_id;
  const tstring m_name;
};

class CHostPool : public CPoolBase<CHost>, public IHostPool
{
public:
  std::shared_ptr<IHost> Create(std::wstring_view name) override;
  std::shared_ptr<IHost> CreateDefault(std::wstring_view name) override;
  std::shared_ptr<IHost> Get(GUID id) override;
};
} // namespace collector::ni::impl
