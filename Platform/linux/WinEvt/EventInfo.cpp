// EvtGetEventInfo: where an event came from. Windows returns the path as an EvtVarTypeString
// variant whose text follows it in the same buffer, sizes in bytes:
// https://learn.microsoft.com/en-us/windows/win32/api/winevt/nf-winevt-evtgeteventinfo
#include "Objects.h"

#include <cstring>
#include <new>

BOOL EvtGetEventInfo(EVT_HANDLE event, EVT_EVENT_PROPERTY_ID propertyId, DWORD propertyValueBufferSize,
                     PEVT_VARIANT propertyValueBuffer, PDWORD propertyValueBufferUsed) noexcept
{
  if (propertyValueBufferUsed == nullptr || propertyId < EvtEventQueryIDs || propertyId >= EvtEventPropertyIdEND)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const auto object = natc::winevt::Find<natc::winevt::EventObject>(event);
  if (!object)
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (propertyId == EvtEventQueryIDs)
  {
    // Which Query of a list selected the event is not kept on this platform.
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
  }
  const std::wstring& path = object->Path();
  const std::size_t textBytes = (path.size() + 1) * sizeof(wchar_t);
  const std::size_t bytes = sizeof(EVT_VARIANT) + textBytes;
  *propertyValueBufferUsed = static_cast<DWORD>(bytes);
  if (propertyValueBuffer == nullptr || propertyValueBufferSize < bytes)
  {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  // The text sits right after the variant; EVT_VARIANT's alignment suits wchar_t.
  auto* text = reinterpret_cast<wchar_t*>(propertyValueBuffer + 1);
  std::memcpy(text, path.c_str(), textBytes);
  *propertyValueBuffer = EVT_VARIANT{};
  propertyValueBuffer->StringVal = text;
  propertyValueBuffer->Count = 0;
  propertyValueBuffer->Type = EvtVarTypeString;
  return TRUE;
}
