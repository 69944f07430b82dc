// EvtCreateBookmark and EvtUpdateBookmark, as "Bookmarking Events" describes them:
// https://learn.microsoft.com/en-us/windows/win32/wes/bookmarking-events
// A bookmark names an event by its channel and its record number in that log: the number the
// log gave the record when it stored it, which is also the record's place in the log. A
// forwarded event shows the EventRecordID of its source host, which says nothing of its place
// in the log that holds it; the bookmark keeps the place.
#include "Bookmark.h"
#include "Objects.h"

#include <new>

EVT_HANDLE EvtCreateBookmark(LPCWSTR bookmarkXml) noexcept
{
  try
  {
    natc::winevt::BookmarkList list;
    // A text that is no bookmark list is refused as malformed XML:
    // https://learn.microsoft.com/en-us/windows/win32/debug/system-error-codes--15000-15999-
    if (bookmarkXml != nullptr && !natc::winevt::ParseBookmarkXml(bookmarkXml, list))
    {
      SetLastError(ERROR_EVT_MALFORMED_XML_TEXT);
      return nullptr;
    }
    return natc::winevt::Register(std::make_shared<natc::winevt::BookmarkObject>(std::move(list)));
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
}

BOOL EvtUpdateBookmark(EVT_HANDLE bookmark, EVT_HANDLE event) noexcept
{
  const auto list = natc::winevt::Find<natc::winevt::BookmarkObject>(bookmark);
  const auto object = natc::winevt::Find<natc::winevt::EventObject>(event);
  if (!list || !object)
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  try
  {
    list->Update(object->Path(), object->RecordId());
    return TRUE;
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
}
