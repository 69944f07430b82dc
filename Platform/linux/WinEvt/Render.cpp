// EvtRender of an event's or a bookmark's XML, with Windows' size protocol (sizes in bytes,
// terminating zero included).
#include "Bookmark.h"
#include "Objects.h"

#include "Evtx/ValueText.h"

#include <cstring>
#include <new>
#include <string>

namespace natc::winevt
{
bool EventObject::Xml(const std::string*& xml, std::size_t& wideLength)
{
  const std::lock_guard guard(m_lock);
  if (!m_rendered)
  {
    // Rendered into a reused buffer, then copied once at its final size: growing the event's
    // own text while rendering would reallocate it several times.
    thread_local std::string scratch;
    scratch.clear();
    {
      const std::lock_guard chunkGuard(m_chunk->lock);
      m_renderOk = m_chunk->chunk->RenderXml(m_record, scratch) == evtx::Status::Ok;
    }
    if (m_renderOk)
      m_xml = scratch;
    m_wideLength = m_renderOk ? evtx::WideLengthOfUtf8(m_xml) : 0;
    m_rendered = true;
  }
  xml = &m_xml;
  wideLength = m_wideLength;
  return m_renderOk;
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
    std::size_t wideLength = 0;
    if (!event->Xml(xml, wideLength))
    {
      SetLastError(ERROR_EVT_INVALID_EVENT_DATA);
      return FALSE;
    }
    const std::size_t bytes = (wideLength + 1) * sizeof(wchar_t);
    *bufferUsed = static_cast<DWORD>(bytes);
    *propertyCount = 0;
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
