// EvtOpenPublisherMetadata and EvtFormatMessage over the installed PublisherCatalog.
#include "PublisherCatalog.h"

#include "Hosts.h"
#include "Objects.h"

#include "Evtx/ValueText.h"

#include <algorithm>
#include <mutex>
#include <new>

namespace natc::winevt
{
namespace
{
class PublisherObject final : public EvtObject
{
public:
  explicit PublisherObject(std::shared_ptr<PublisherMessages> messages) : messages(std::move(messages)) {}
  std::shared_ptr<PublisherMessages> messages;
};

std::mutex g_catalogLock;
std::shared_ptr<PublisherCatalog> g_catalog;

std::shared_ptr<PublisherCatalog> CurrentCatalog()
{
  const std::lock_guard guard(g_catalogLock);
  return g_catalog;
}
} // namespace

std::shared_ptr<PublisherCatalog> SetPublisherCatalog(std::shared_ptr<PublisherCatalog> catalog)
{
  const std::lock_guard guard(g_catalogLock);
  std::swap(g_catalog, catalog);
  return catalog;
}
} // namespace natc::winevt

EVT_HANDLE EvtOpenPublisherMetadata(EVT_HANDLE session, LPCWSTR publisherId, LPCWSTR, LCID, DWORD flags) noexcept
{
  using namespace natc::winevt;
  if (publisherId == nullptr || flags != 0)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  try
  {
    std::string directory;
    if (const DWORD error = Connect(session, directory); error != ERROR_SUCCESS)
    {
      SetLastError(error);
      return nullptr;
    }
    const auto catalog = CurrentCatalog();
    auto messages = catalog ? catalog->Open(publisherId, directory) : nullptr;
    if (!messages)
    {
      SetLastError(ERROR_FILE_NOT_FOUND);
      return nullptr;
    }
    return Register(std::make_shared<PublisherObject>(std::move(messages)));
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
}

BOOL EvtFormatMessage(EVT_HANDLE publisherMetadata, EVT_HANDLE event, DWORD messageId, DWORD, PEVT_VARIANT,
                      DWORD flags, DWORD bufferSize, LPWSTR buffer, PDWORD bufferUsed) noexcept
{
  using namespace natc::winevt;
  if (bufferUsed == nullptr || flags < EvtFormatMessageEvent || flags > EvtFormatMessageXml)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const auto publisher = Find<PublisherObject>(publisherMetadata);
  const auto eventObject = Find<EventObject>(event);
  if (!publisher || (flags != EvtFormatMessageId && !eventObject))
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  try
  {
    std::wstring eventXml;
    if (eventObject)
    {
      const std::string* xml = nullptr;
      if (!eventObject->Xml(xml))
      {
        SetLastError(ERROR_EVT_INVALID_EVENT_DATA);
        return FALSE;
      }
      eventXml = evtx::Utf8ToWide(*xml);
    }
    std::wstring text;
    const DWORD status = publisher->messages->Format(flags, messageId, eventXml, text);
    if (status != ERROR_SUCCESS && status != ERROR_EVT_UNRESOLVED_VALUE_INSERT)
    {
      *bufferUsed = 0;
      SetLastError(status);
      return FALSE;
    }
    // Sizes are in characters here, terminating zero included.
    const auto needed = static_cast<DWORD>(text.size() + 1);
    *bufferUsed = needed;
    if (buffer == nullptr || bufferSize < needed)
    {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    std::copy(text.begin(), text.end(), buffer);
    buffer[text.size()] = L'\0';
    if (status != ERROR_SUCCESS)
    {
      SetLastError(status);
      return FALSE;
    }
    return TRUE;
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
}
