// EvtRender of an event's or a bookmark's XML, with Windows' size protocol (sizes in bytes,
// terminating zero included).
#include "Bookmark.h"
#include "Objects.h"

#include "Evtx/ValueText.h"

#include <atomic>
#include <cstring>
#include <new>
#include <string>

namespace natc::winevt
{
namespace
{
// The last event rendered on this thread; serial 0 is no event.
struct SRenderedText
{
  static constexpr std::size_t unknown = static_cast<std::size_t>(-1);
  std::uint64_t serial = 0;
  bool ok = false;
  std::string xml;
  // Counted when first asked for: a caller whose buffer is large enough never needs it.
  std::size_t wideLength = unknown;
};
} // namespace

std::uint64_t EventObject::NextSerial() noexcept
{
  static std::atomic<std::uint64_t> next{1};
  return next.fetch_add(1, std::memory_order_relaxed);
}

bool EventObject::Xml(const std::string*& xml, std::size_t* wideLength)
{
  // Rendered into a buffer of the thread that grows to the largest event and is reused: the
  // event keeps no copy of its own, so reading an event costs no allocation.
  thread_local SRenderedText rendered;
  if (rendered.serial != m_serial)
  {
    rendered.serial = 0;
    rendered.xml.clear();
    {
      const std::lock_guard chunkGuard(m_chunk->lock);
      rendered.ok = m_chunk->chunk->RenderXml(m_record, rendered.xml) == evtx::Status::Ok;
    }
    rendered.wideLength = SRenderedText::unknown;
    rendered.serial = m_serial;
  }
  xml = &rendered.xml;
  if (wideLength != nullptr)
  {
    if (rendered.wideLength == SRenderedText::unknown)
      rendered.wideLength = rendered.ok ? evtx::WideLengthOfUtf8(rendered.xml) : 0;
    *wideLength = rendered.wideLength;
  }
  return rendered.ok;
}
} // namespace natc::winevt

namespace
{
BOOL RenderBookmark(EVT_HANDLE fragment, DWORD bufferSize, PVOID buffer, PDWORD bufferUsed, PDWORD propertyCount)
{
  const auto bookmark = natc::winevt::Find<natc::winevt::BookmarkObject>(fragment);
  if (!bookmark)
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  const std::wstring xml = natc::winevt::FormatBookmarkXml(bookmark->Copy());
  const std::size_t bytes = (xml.size() + 1) * sizeof(wchar_t);
  *bufferUsed = static_cast<DWORD>(bytes);
  *propertyCount = 0;
  if (buffer == nullptr || bufferSize < bytes)
  {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  std::memcpy(buffer, xml.c_str(), bytes);
  return TRUE;
}
} // namespace

BOOL EvtRender(EVT_HANDLE, EVT_HANDLE fragment, DWORD flags, DWORD bufferSize, PVOID buffer, PDWORD bufferUsed,
               PDWORD propertyCount) noexcept
{
  if (bufferUsed == nullptr || propertyCount == nullptr)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  if (flags == EvtRenderBookmark)
  {
    try
    {
      return RenderBookmark(fragment, bufferSize, buffer, bufferUsed, propertyCount);
    }
    catch (const std::bad_alloc&)
    {
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return FALSE;
    }
  }
  if (flags != EvtRenderEventXml)
  {
    // Value rendering is not provided on this platform.
    SetLastError(flags == EvtRenderEventValues ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const auto event = natc::winevt::Find<natc::winevt::EventObject>(fragment);
  if (!event)
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  try
  {
    const std::string* xml = nullptr;
    if (!event->Xml(xml))
    {
      SetLastError(ERROR_EVT_INVALID_EVENT_DATA);
      return FALSE;
    }
    *propertyCount = 0;
    // No UTF-8 byte makes more than one wide unit (a 4-byte sequence makes at most two): a buffer
    // of a unit per byte and the zero takes the text as it is widened, without counting it first.
    if (buffer != nullptr && bufferSize / sizeof(wchar_t) > xml->size())
    {
      auto* text = static_cast<wchar_t*>(buffer);
      const std::size_t units = evtx::WidenUtf8(*xml, text);
      text[units] = L'\0';
      *bufferUsed = static_cast<DWORD>((units + 1) * sizeof(wchar_t));
      return TRUE;
    }
    std::size_t wideLength = 0;
    event->Xml(xml, &wideLength);
    const std::size_t bytes = (wideLength + 1) * sizeof(wchar_t);
    *bufferUsed = static_cast<DWORD>(bytes);
    if (buffer == nullptr || bufferSize < bytes)
    {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    // Widened straight into the caller's buffer: no wide copy of the text is kept.
    auto* text = static_cast<wchar_t*>(buffer);
    text[evtx::WidenUtf8(*xml, text)] = L'\0';
    return TRUE;
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
}
