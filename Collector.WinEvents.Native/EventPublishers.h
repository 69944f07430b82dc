// The publisher metadata handles of one update, one per provider: a provider's metadata is
// opened at its first event and kept until Clear, as a Windows client keeps it, so that the
// events of one provider do not each open and close it. A provider without metadata is
// remembered too. The collection clears the cache when its update ends, so that metadata
// installed meanwhile is seen by the next update.
//   CPublisherMetadataCache cache(api);
//   EVT_HANDLE metadata = cache.Get(session, L"Service Control Manager"); // null: none
//   cache.Clear();                                                     // closes every handle
// Not thread-safe: used by one update at a time.
#pragma once

#include "EventLogApi.h"
#include "KeldaKernel/Strings.h"

#include <unordered_map>

namespace collector::ni::impl
{
class CPublisherMetadataCache
{
public:
  explicit CPublisherMetadataCache(const SEventLogApi& api) noexcept : m_api(api) {}
  ~CPublisherMetadataCache() { Clear(); }
  CPublisherMetadataCache(const CPublisherMetadataCache&) = delete;
  CPublisherMetadataCache& operator=(const CPublisherMetadataCache&) = delete;

  // The provider's metadata in the session, opened on first use; null when it has none.
  EVT_HANDLE Get(EVT_HANDLE session, const tstring& provider);
  // Closes every handle; the next Get opens afresh.
  void Clear() noexcept;

private:
  const SEventLogApi& m_api;
  std::unordered_map<tstring, EVT_HANDLE> m_handles;
  // The last lookup: events of one provider mostly come in runs.
  const tstring* m_lastProvider = nullptr;
  EVT_HANDLE m_lastHandle = nullptr;
};
} // namespace collector::ni::impl
