#include "Cim/Names.h"
#include "Cim/Provider.h"

namespace cim
{
// The header takes the namespace by value; it is only read here, to build its key.
void Host::Register(std::wstring nameSpace, std::shared_ptr<Provider> provider) // NOLINT(performance-unnecessary-value-param)
{
  auto decl = provider->Class();
  auto className = ToLower(decl->name);
  std::lock_guard lock(m_lock);
  m_namespaces[NormalizeNamespace(nameSpace)][std::move(className)] = std::move(provider);
}

bool Host::HasNamespace(std::wstring_view nameSpace) const
{
  const auto key = NormalizeNamespace(nameSpace);
  std::lock_guard lock(m_lock);
  return m_namespaces.find(key) != m_namespaces.end();
}

std::shared_ptr<Provider> Host::Find(std::wstring_view nameSpace, std::wstring_view className) const
{
  const auto key = NormalizeNamespace(nameSpace);
  const auto classKey = ToLower(className);
  std::lock_guard lock(m_lock);
  const auto ns = m_namespaces.find(key);
  if (ns == m_namespaces.end())
    return nullptr;
  const auto provider = ns->second.find(classKey);
  return provider == ns->second.end() ? nullptr : provider->second;
}
} // namespace cim
