#include "ClassPool.h"

namespace collector::ni::impl
{
CClassPool::CClassPool() : m_default(Add(std::make_shared<CClass>(GUID_NULL, std::wstring_view())))
{
}

std::shared_ptr<IClass> CClassPool::Get(GUID id)
{
  return CPoolBase<CClass>::Get(id);
}

std::shared_ptr<IClass> CClassPool::Create(GUID id, std::wstring_view name)
{
  return Add(std::make_shared<CClass>(id, name));
}

void CClassPool::Remove(GUID id)
{
  Erase(id);
}
} // namespace collector::ni::impl
