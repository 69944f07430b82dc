#include "EventDescription.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace collector::ni::impl
{
namespace
{
// Closes the publisher metadata handle through the same table that opened it.
class CMetadataHandle
{
public:
  CMetadataHandle(const SEventLogApi& api, EVT_HANDLE handle) noexcept : m_api(api), m_handle(handle) {}
  ~CMetadataHandle()
  {
    if (m_handle != nullptr)
      m_api.Close(m_handle);
  }
  CMetadataHandle(const CMetadataHandle&) = delete;
  CMetadataHandle& operator=(const CMetadataHandle&) = delete;
  EVT_HANDLE get() const noexcept { return m_handle; }

private:
  const SEventLogApi& m_api;
  EVT_HANDLE m_handle;
};
} // namespace

tstring FormatEventDescription(const SEventLogApi& api, EVT_HANDLE session, const tstring& provider,
                               EVT_HANDLE event)
{
  const CMetadataHandle metadata(api, api.OpenPublisherMetadata(session, provider.c_str(), nullptr, 0, 0));
  return FormatEventDescription(api, metadata.get(), event);
}

tstring FormatEventDescription(const SEventLogApi& api, EVT_HANDLE metadata, EVT_HANDLE event)
{
  if (metadata == nullptr)
    return {};

  DWORD used = 0;
  if (api.FormatMessage(metadata, event, 0, 0, nullptr, EvtFormatMessageEvent, 0, nullptr, &used))
    return {};
  if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    return eventDescriptionFailure;

  std::vector<wchar_t> buffer(used, L'\0');
  tstring description;
  if (!api.FormatMessage(metadata, event, 0, 0, nullptr, EvtFormatMessageEvent, used, buffer.data(), &used) &&
      GetLastError() != ERROR_EVT_UNRESOLVED_VALUE_INSERT)
  {
    description = eventDescriptionFailure;
  }
  // Kept as the collector always did it: the buffer replaces the text, failure or not. A size
  // larger than the buffer (a message that grew between the calls) is cut to the buffer.
  description.assign(buffer.data(), std::min<std::size_t>(used, buffer.size()));
  return description;
}
} // namespace collector::ni::impl
