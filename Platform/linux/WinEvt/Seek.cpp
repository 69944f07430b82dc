// EvtSeek over a query's result set, with the origins and the strict flag of EVT_SEEK_FLAGS:
// https://learn.microsoft.com/en-us/windows/win32/api/winevt/nf-winevt-evtseek,
// https://learn.microsoft.com/en-us/windows/win32/api/winevt/ne-winevt-evt_seek_flags
// Past either end of the result the cursor stops on the nearest event, or with EvtSeekStrict
// the call fails; a bookmarked event missing from the result is counted from as the page's table
// shows (offsets 0 and 1 both reach the first event after it), or with EvtSeekStrict fails with
// ERROR_NOT_FOUND, the code EvtSubscribeStrict documents for a bookmarked event that is gone:
// https://learn.microsoft.com/en-us/windows/win32/api/winevt/ne-winevt-evt_subscribe_flags
#include "Bookmark.h"
#include "ResultSet.h"

#include <new>

BOOL EvtSeek(EVT_HANDLE resultSet, LONGLONG position, EVT_HANDLE bookmark, DWORD timeout, DWORD flags) noexcept
{
  const DWORD origin = flags & EvtSeekOriginMask;
  const bool fromBookmark = origin == EvtSeekRelativeToBookmark;
  // The time-out is reserved and must be zero; a bookmark goes only with its origin.
  if (timeout != 0 || (flags & ~(DWORD(EvtSeekOriginMask) | EvtSeekStrict)) != 0 || origin < EvtSeekRelativeToFirst ||
      origin > EvtSeekRelativeToBookmark || fromBookmark != (bookmark != nullptr))
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const auto results = natc::winevt::Find<natc::winevt::ResultSetObject>(resultSet);
  if (!results)
  {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  try
  {
    natc::winevt::BookmarkList marks;
    const natc::winevt::BookmarkEntry* mark = nullptr;
    if (fromBookmark)
    {
      const auto object = natc::winevt::Find<natc::winevt::BookmarkObject>(bookmark);
      if (!object)
      {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
      }
      marks = object->Copy();
      mark = marks.Current();
      // An empty bookmark names no event.
      if (mark == nullptr)
      {
        SetLastError(ERROR_NOT_FOUND);
        return FALSE;
      }
    }
    const DWORD error = results->Seek(origin, position, mark != nullptr ? &mark->channel : nullptr,
                                      mark != nullptr ? mark->recordId : 0, (flags & EvtSeekStrict) != 0);
    if (error != ERROR_SUCCESS)
    {
      SetLastError(error);
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
