#include "HostPool.h"

#include "KeldaKernel/Exceptions.h"

namespace collector::ni::impl
{
std::shared_ptr<IHost> CHostPool::Create(std::wstring_view name)
{
  if (name.empty())
    KELDA_THROW(CHResultException(E_INVALIDARG, L"Host name can not be empty"));
  GUID id{};
  // A failed UuidCreate still leaves a usable (if not unique) identifier; it is not checked.
  UuidCreate(&id);
  return Add(std::make_shared<CHost>(id, name));
}

std::shared_ptr<IHost> CHostPool::CreateDefault(std::wstring_view name)
{
  // The default host may bear any name, even an empty one.
  return Add(std::make_shared<CHost>(GUID_NULL, name));
}

std::shared_ptr<IHost> CHostPool::Get(GUID id)
{
  return CPoolBase<CHost>::Get(id);
}
} // namespace collector::ni::impl
