// EvtCreateBookmark, EvtUpdateBookmark, EvtRender(EvtRenderBookmark) and EvtSeek over written
// logs, against what Microsoft documents of them.
#include "TestSupport.h"
#include "WriterSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using namespace wevtapi_test;

std::wstring RenderBookmark(EVT_HANDLE bookmark)
{
  return RenderXml(bookmark, EvtRenderBookmark);
}

class Bookmarks : public LogsTest
{
protected:
  // A bookmark updated with the event of that record number in the channel.
  Handle BookmarkOf(const wchar_t* channel, int recordId)
  {
    Handle bookmark(EvtCreateBookmark(nullptr));
    const std::wstring text = L"*[System[EventRecordID=" + std::to_wstring(recordId) + L"]]";
    Handle query = Query(channel, text.c_str());
    EVT_HANDLE event = nullptr;
    DWORD returned = 0;
    EXPECT_TRUE(EvtNext(query.get(), 1, &event, INFINITE, 0, &returned));
    Handle owned(event);
    EXPECT_TRUE(EvtUpdateBookmark(bookmark.get(), event));
    return bookmark;
  }

  // The record number of the next event, or 0 at the end.
  static std::uint64_t NextId(EVT_HANDLE query)
  {
    EVT_HANDLE event = nullptr;
    DWORD returned = 0;
    if (!EvtNext(query, 1, &event, INFINITE, 0, &returned))
      return 0;
    Handle owned(event);
    return RecordIdOf(RenderXml(event));
  }
};

TEST_F(Bookmarks, RenderAsWindowsDoes)
{
  const Handle bookmark = BookmarkOf(L"Application", 7);
  DWORD used = 0, count = 7;
  ASSERT_FALSE(EvtRender(nullptr, bookmark.get(), EvtRenderBookmark, 0, nullptr, &used, &count));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  const std::wstring golden = L"<BookmarkList>\r\n  <Bookmark Channel='Application' RecordId='7' IsCurrent='true'/>\r\n"
                              L"</BookmarkList>";
  EXPECT_EQ(used, (golden.size() + 1) * sizeof(wchar_t));
  EXPECT_EQ(RenderBookmark(bookmark.get()), golden);
}

TEST_F(Bookmarks, KeepOneEntryPerChannelAndMarkTheLastMoved)
{
  const Handle bookmark = BookmarkOf(L"Application", 7);
  Handle query = Query(L"Microsoft-Windows-Sysmon/Operational");
  EVT_HANDLE event = nullptr;
  DWORD returned = 0;
  ASSERT_TRUE(EvtNext(query.get(), 1, &event, INFINITE, 0, &returned));
  Handle owned(event);
  ASSERT_TRUE(EvtUpdateBookmark(bookmark.get(), event));
  EXPECT_EQ(RenderBookmark(bookmark.get()),
            L"<BookmarkList>\r\n  <Bookmark Channel='Application' RecordId='7'/>\r\n"
            L"  <Bookmark Channel='Microsoft-Windows-Sysmon/Operational' RecordId='1' IsCurrent='true'/>\r\n"
            L"</BookmarkList>");
  const Handle again = BookmarkOf(L"application", 9);
  ASSERT_TRUE(EvtUpdateBookmark(bookmark.get(), event));
  EXPECT_EQ(RenderBookmark(again.get()),
            L"<BookmarkList>\r\n  <Bookmark Channel='application' RecordId='9' IsCurrent='true'/>\r\n</BookmarkList>");
}

TEST_F(Bookmarks, AnEmptyBookmarkRendersAnEmptyList)
{
  const Handle bookmark(EvtCreateBookmark(nullptr));
  ASSERT_TRUE(bookmark);
  EXPECT_EQ(RenderBookmark(bookmark.get()), L"<BookmarkList>\r\n</BookmarkList>");
}

TEST_F(Bookmarks, RenderedTextCreatesTheSameBookmark)
{
  const Handle bookmark = BookmarkOf(L"Application", 42);
  const std::wstring xml = RenderBookmark(bookmark.get());
  const Handle restored(EvtCreateBookmark(xml.c_str()));
  ASSERT_TRUE(restored);
  EXPECT_EQ(RenderBookmark(restored.get()), xml);
  // MS-EVEN6 2.2.14's own example: double quotes and "True".
  const Handle example(EvtCreateBookmark(
    L"<BookmarkList> <Bookmark Channel=\"Application\" RecordId=\"2004\" IsCurrent=\"True\"/> </BookmarkList>"));
  ASSERT_TRUE(example);
  EXPECT_EQ(RenderBookmark(example.get()),
            L"<BookmarkList>\r\n  <Bookmark Channel='Application' RecordId='2004' IsCurrent='true'/>\r\n</BookmarkList>");
}

TEST_F(Bookmarks, TextThatIsNoBookmarkListIsMalformed)
{
  for (const wchar_t* bad :
       {L"", L"<BookmarkList>", L"<Bookmarks/>", L"<BookmarkList><Bookmark Channel='A'/></BookmarkList>",
        L"<BookmarkList><Bookmark RecordId='1'/></BookmarkList>",
        L"<BookmarkList><Bookmark Channel='A' RecordId='x1'/></BookmarkList>",
        L"<BookmarkList><Bookmark Channel='A' RecordId='-1'/></BookmarkList>",
        L"<BookmarkList><Bookmark Channel='A' RecordId='1' IsCurrent='maybe'/></BookmarkList>",
        L"<BookmarkList><Other Channel='A' RecordId='1'/></BookmarkList>", L"<BookmarkList/><BookmarkList/>"})
  {
    SetLastError(0);
    EXPECT_EQ(EvtCreateBookmark(bad), nullptr) << bad;
    EXPECT_EQ(GetLastError(), ERROR_EVT_MALFORMED_XML_TEXT) << bad;
  }
}

TEST_F(Bookmarks, UpdateNeedsABookmarkAndAnEvent)
{
  const Handle bookmark(EvtCreateBookmark(nullptr));
  Handle query = Query(L"Application");
  EXPECT_FALSE(EvtUpdateBookmark(bookmark.get(), query.get()));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(EvtUpdateBookmark(query.get(), bookmark.get()));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(Bookmarks, SeekToTheBookmarkedEventOrPastIt)
{
  const Handle bookmark = BookmarkOf(L"Application", 100);
  Handle query = Query(L"Application");
  ASSERT_TRUE(EvtSeek(query.get(), 0, bookmark.get(), 0, EvtSeekRelativeToBookmark | EvtSeekStrict));
  EXPECT_EQ(NextId(query.get()), 100u);
  ASSERT_TRUE(EvtSeek(query.get(), 1, bookmark.get(), 0, EvtSeekRelativeToBookmark));
  EXPECT_EQ(NextId(query.get()), 101u);
  EXPECT_EQ(NextId(query.get()), 102u);
  ASSERT_TRUE(EvtSeek(query.get(), -3, bookmark.get(), 0, EvtSeekRelativeToBookmark));
  EXPECT_EQ(NextId(query.get()), 97u);
  ASSERT_TRUE(EvtSeek(query.get(), 1, bookmark.get(), 0, EvtSeekRelativeToBookmark));
  const auto rest = ReadAll(query.get());
  ASSERT_EQ(rest.size(), 150u);
  EXPECT_EQ(rest.front(), 101u);
  EXPECT_EQ(rest.back(), 250u);
}

TEST_F(Bookmarks, SeekPastTheLastEventStopsOnItUnlessStrict)
{
  const Handle bookmark = BookmarkOf(L"Application", 250);
  Handle query = Query(L"Application");
  EXPECT_EQ(NextId(query.get()), 1u);
  EXPECT_FALSE(EvtSeek(query.get(), 1, bookmark.get(), 0, EvtSeekRelativeToBookmark | EvtSeekStrict));
  EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);
  // A strict seek that fails leaves the cursor where it was.
  EXPECT_EQ(NextId(query.get()), 2u);
  ASSERT_TRUE(EvtSeek(query.get(), 1, bookmark.get(), 0, EvtSeekRelativeToBookmark));
  EXPECT_EQ(NextId(query.get()), 250u);
  EXPECT_EQ(NextId(query.get()), 0u);
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
}

// The table of https://learn.microsoft.com/en-us/windows/win32/api/winevt/ne-winevt-evt_seek_flags:
// offsets 0 and 1 both reach the first event after a bookmarked one the result does not hold.
TEST_F(Bookmarks, SeekFromARemovedRecordCountsFromItsPlace)
{
  const Handle bookmark = BookmarkOf(L"Application", 100);
  Handle query = Query(L"Application", L"*[System[EventRecordID!=100]]");
  EXPECT_FALSE(EvtSeek(query.get(), 0, bookmark.get(), 0, EvtSeekRelativeToBookmark | EvtSeekStrict));
  EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);
  const std::vector<std::pair<LONGLONG, std::uint64_t>> expected{{0, 101}, {1, 101}, {2, 102}, {-1, 99}, {-2, 98}};
  for (const auto& [offset, id] : expected)
  {
    ASSERT_TRUE(EvtSeek(query.get(), offset, bookmark.get(), 0, EvtSeekRelativeToBookmark)) << offset;
    EXPECT_EQ(NextId(query.get()), id) << offset;
  }
}

TEST_F(Bookmarks, SeekInARecreatedLogFindsNoBookmarkedEvent)
{
  const Handle bookmark = BookmarkOf(L"Application", 100);
  WriteEvents(host.File("Application.evtx"), 50);
  Handle query = Query(L"Application");
  EXPECT_FALSE(EvtSeek(query.get(), 0, bookmark.get(), 0, EvtSeekRelativeToBookmark | EvtSeekStrict));
  EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);
  EXPECT_EQ(ReadAll(query.get()).size(), 50u);
}

// A forwarded event shows its source host's EventRecordID; the bookmark keeps its place in the
// log, so that seeking past it reaches the events stored later, whatever numbers they show.
TEST_F(Bookmarks, SeekFollowsTheLogsOrderNotTheEventsNumbers)
{
  const std::vector<std::uint64_t> shown{900, 901, 5, 6, 7000, 3, 2};
  WriteEvents(host.File("ForwardedEvents.evtx"), static_cast<int>(shown.size()), true, 1,
              [&](int i, evtx::WriterEvent& event) { event.eventRecordId = shown[static_cast<std::size_t>(i - 1)]; });
  Handle bookmark(EvtCreateBookmark(nullptr));
  {
    Handle query = Query(L"ForwardedEvents");
    EVT_HANDLE events[3] = {};
    DWORD returned = 0;
    ASSERT_TRUE(EvtNext(query.get(), 3, events, INFINITE, 0, &returned));
    ASSERT_EQ(returned, 3u);
    for (EVT_HANDLE event : events)
    {
      ASSERT_TRUE(EvtUpdateBookmark(bookmark.get(), event));
      EvtClose(event);
    }
  }
  EXPECT_EQ(RenderBookmark(bookmark.get()),
            L"<BookmarkList>\r\n  <Bookmark Channel='ForwardedEvents' RecordId='3' IsCurrent='true'/>\r\n"
            L"</BookmarkList>");
  Handle query = Query(L"ForwardedEvents");
  ASSERT_TRUE(EvtSeek(query.get(), 1, bookmark.get(), 0, EvtSeekRelativeToBookmark | EvtSeekStrict));
  EXPECT_EQ(ReadAll(query.get()), (std::vector<std::uint64_t>{6, 7000, 3, 2}));
}

TEST_F(Bookmarks, SeekFromTheFirstTheLastOrTheCurrentEvent)
{
  Handle query = Query(L"Application");
  ASSERT_TRUE(EvtSeek(query.get(), 10, nullptr, 0, EvtSeekRelativeToFirst));
  EXPECT_EQ(NextId(query.get()), 11u);
  ASSERT_TRUE(EvtSeek(query.get(), 3, nullptr, 0, EvtSeekRelativeToCurrent));
  EXPECT_EQ(NextId(query.get()), 15u);
  ASSERT_TRUE(EvtSeek(query.get(), -2, nullptr, 0, EvtSeekRelativeToLast));
  EXPECT_EQ(NextId(query.get()), 248u);
  ASSERT_TRUE(EvtSeek(query.get(), 0, nullptr, 0, EvtSeekRelativeToLast));
  EXPECT_EQ(NextId(query.get()), 250u);
  EXPECT_FALSE(EvtSeek(query.get(), 1, nullptr, 0, EvtSeekRelativeToLast | EvtSeekStrict));
  EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);
  // After a seek from a bookmark the current place is counted afresh.
  const Handle bookmark = BookmarkOf(L"Application", 40);
  ASSERT_TRUE(EvtSeek(query.get(), 0, bookmark.get(), 0, EvtSeekRelativeToBookmark));
  ASSERT_TRUE(EvtSeek(query.get(), -1, nullptr, 0, EvtSeekRelativeToCurrent));
  EXPECT_EQ(NextId(query.get()), 39u);
}

TEST_F(Bookmarks, SeekRefusesWhatItsPageForbids)
{
  const Handle bookmark = BookmarkOf(L"Application", 5);
  Handle query = Query(L"Application");
  EXPECT_FALSE(EvtSeek(query.get(), 0, bookmark.get(), 1, EvtSeekRelativeToBookmark));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(EvtSeek(query.get(), 0, bookmark.get(), 0, EvtSeekRelativeToFirst));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(EvtSeek(query.get(), 0, nullptr, 0, EvtSeekRelativeToBookmark));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(EvtSeek(query.get(), 0, nullptr, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(EvtSeek(bookmark.get(), 0, nullptr, 0, EvtSeekRelativeToFirst));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(EvtSeek(query.get(), 0, query.get(), 0, EvtSeekRelativeToBookmark));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  // A bookmark of a channel the query does not read names no event of its result.
  Handle sysmon = Query(L"Microsoft-Windows-Sysmon/Operational");
  EXPECT_FALSE(EvtSeek(sysmon.get(), 0, bookmark.get(), 0, EvtSeekRelativeToBookmark));
  EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);
}
} // namespace
