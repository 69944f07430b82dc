#include "EventPublishers.h"

namespace collector::ni::impl
{
EVT_HANDLE CPublisherMetadataCache::Get(EVT_HANDLE session, const tstring& provider)
{
  if (m_lastProvider != nullptr && *m_lastProvider == provider)
    return m_lastHandle;
  auto found = m_handles.find(provider);
  if (found == m_handles.end())
    found = m_handles.emplace(provider, m_api.OpenPublisherMetadata(session, provider.c_str(), nullptr, 0, 0)).first;
  // Keys of an unordered map keep their address until erased.
  m_lastProvider = &found->first;
  m_lastHandle = found->second;
  return m_lastHandle;
}

void CPublisherMetadataCache::Clear() noexcept
{
  for (const auto& [provider, handle] : m_handles)
    if (handle != nullptr)
      m_api.Close(handle);
  m_handles.clear();
  m_lastProvider = nullptr;
  m_lastHandle = nullptr;
}
} // namespace collector::ni::impl
