// Where event descriptions come from. Linux hosts have no provider metadata, so by default no
// catalog is installed and EvtOpenPublisherMetadata fails as Windows does for an unknown
// provider (ERROR_FILE_NOT_FOUND). A message source (say, manifests exported from a Windows
// machine) plugs in here with SetPublisherCatalog.
#pragma once

#include "Platform/WinEvt.h"

#include <memory>
#include <string>
#include <string_view>

namespace natc::winevt
{
// The messages of one provider.
class PublisherMessages
{
public:
  virtual ~PublisherMessages() = default;
  // Formats the message for an EVT_FORMAT_MESSAGE_FLAGS value (and messageId for
  // EvtFormatMessageId) of the event given by its XML. Returns ERROR_SUCCESS,
  // ERROR_EVT_UNRESOLVED_VALUE_INSERT (text is still delivered) or another Win32 code.
  virtual DWORD Format(DWORD flags, DWORD messageId, std::wstring_view eventXml, std::wstring& text) = 0;
};

class PublisherCatalog
{
public:
  virtual ~PublisherCatalog() = default;
  // The provider's messages, or null when the host has no metadata for it.
  virtual std::shared_ptr<PublisherMessages> Open(std::wstring_view provider, const std::string& logDirectory) = 0;
};

// Installs the catalog used from now on (null: none); returns the previous one.
std::shared_ptr<PublisherCatalog> SetPublisherCatalog(std::shared_ptr<PublisherCatalog> catalog);
} // namespace natc::winevt
