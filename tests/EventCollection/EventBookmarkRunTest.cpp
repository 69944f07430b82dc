// Bookmarks, sessions and batches over a scripted Event Log API: the path an event was read
// from, channel names in other case, sessions failing at EvtQuery, SetUser, replies too large
// for a batch (RPC_S_INVALID_BOUND), results gone stale (ERROR_EVT_QUERY_RESULT_STALE), cleared
// logs, and bookmarks handed to a new collection.
#include "EventTestSupport.h"
#include "ScriptedApi.h"

#include "KeldaKernel/Exceptions.h"
#include "TestSupport/LogCapture.h"

#include <gtest/gtest.h>

namespace
{
using namespace events_test;
using collector::ni::win_events::SBookmark;

constexpr DWORD logonFailure = 1326;

class EventBookmarkRun : public CCollectionTest
{
protected:
  void SetUp() override
  {
    g_api = SScriptedApi{};
    Start(L"server01", ScriptedTable());
  }

  void Script(const std::wstring& channel, long long first, long long last)
  {
    for (long long id = first; id <= last; ++id)
      g_api.events.push_back(EventXml(channel, id));
  }
};

TEST_F(EventBookmarkRun, TheBookmarkIsKeptUnderThePathTheEventWasReadFrom)
{
  // Forwarded events keep the channel name of their source host.
  SetChannels({L"ForwardedEvents"});
  Script(L"System", 1, 3);
  g_api.paths.assign(3, L"ForwardedEvents");
  collection->UpdateOnce();
  const auto bookmarks = collection->GetBookmarks();
  EXPECT_EQ(bookmarks.count(L"System"), 0u);
  EXPECT_EQ(bookmarks.at(L"ForwardedEvents"), 3);
  collection->UpdateOnce();
  EXPECT_NE(g_api.queries.back().find(L"EventRecordID&gt;3"), std::wstring::npos) << g_api.queries.back();
}

TEST_F(EventBookmarkRun, APathInOtherCaseFindsItsBookmark)
{
  SetChannels({L"system"});
  auto filters = collection->GetFilter();
  filters[0].TimeDiff = 3600000;
  collection->SetFilter(filters);
  Script(L"System", 1, 2);
  collection->UpdateOnce();
  collection->UpdateOnce();
  // The second query continues after the bookmark instead of repeating the window.
  EXPECT_EQ(g_api.queries.back().find(L"timediff"), std::wstring::npos) << g_api.queries.back();
  EXPECT_NE(g_api.queries.back().find(L"EventRecordID&gt;2"), std::wstring::npos) << g_api.queries.back();
  EXPECT_EQ(collection->GetBookmarks().at(L"SYSTEM"), 2);
}

TEST_F(EventBookmarkRun, ASessionFailingAtQueryIsOpenedAfreshAtTheNextUpdate)
{
  SetChannels({L"System"});
  Script(L"System", 1, 1);
  g_api.queryFails = true;
  g_api.queryError = logonFailure;
  EXPECT_THROW(collection->UpdateOnce(), CHResultException);
  EXPECT_EQ(g_api.closed.count(scriptedSession), 1u);
  g_api.queryFails = false;
  collection->UpdateOnce();
  EXPECT_EQ(g_api.sessionsOpened, 2);
  EXPECT_EQ(subscriber->Records().size(), 1u);
}

TEST_F(EventBookmarkRun, SetUserDropsTheSessionAndTheNextUpdateLogsOnAsTheNewUser)
{
  SetChannels({L"System"});
  collection->UpdateOnce();
  EXPECT_EQ(g_api.lastUser, L"bob");
  collection->SetUser(std::make_shared<CUser>(L"CORP", L"alice"));
  collection->UpdateOnce();
  EXPECT_EQ(g_api.sessionsOpened, 2);
  EXPECT_EQ(g_api.lastUser, L"alice");
  EXPECT_EQ(g_api.closed.count(scriptedSession), 1u);
}

TEST_F(EventBookmarkRun, AReplyTooLargeHalvesTheBatchAndTheReadGoesOn)
{
  SetChannels({L"System"});
  Script(L"System", 1, 100);
  g_api.replyLimit = 30;
  collection->UpdateOnce();
  EXPECT_EQ(subscriber->Records().size(), 100u);
  ASSERT_GE(g_api.nextBatchSizes.size(), 4u);
  EXPECT_EQ(g_api.nextBatchSizes[0], 100u);
  EXPECT_EQ(g_api.nextBatchSizes[1], 50u);
  EXPECT_EQ(g_api.nextBatchSizes[2], 25u);
  EXPECT_EQ(g_api.nextBatchSizes[3], 25u);
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 100);
  // After a successful update the batch grows back.
  EXPECT_EQ(collection->CurrentBatchSize(), CEventCollection::batchSize);
  g_api.nextBatchSizes.clear();
  collection->UpdateOnce();
  EXPECT_EQ(g_api.nextBatchSizes.front(), 100u);
}

TEST_F(EventBookmarkRun, TheBatchHalvesDownToOne)
{
  SetChannels({L"System"});
  Script(L"System", 1, 3);
  g_api.replyLimit = 1;
  collection->UpdateOnce();
  EXPECT_EQ(subscriber->Records().size(), 3u);
  const std::vector<DWORD> expected{100, 50, 25, 12, 6, 3, 1, 1, 1, 1};
  EXPECT_EQ(g_api.nextBatchSizes, expected);
}

TEST_F(EventBookmarkRun, AClearedLogIsReadFromItsFirstRecord)
{
  SetChannels({L"System"});
  Script(L"System", 1, 50);
  collection->UpdateOnce();
  ASSERT_EQ(collection->GetBookmarks().at(L"System"), 50);
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  g_api.events.clear();
  Script(L"System", 1, 4);
  g_api.newest = 4;
  subscriber->Clear();
  collection->UpdateOnce();
  EXPECT_EQ(capture.Sink().Count(L"Log System was cleared; reading it from the start"), 1u);
  EXPECT_NE(g_api.queries.back().find(L"EventRecordID&gt;0"), std::wstring::npos) << g_api.queries.back();
  EXPECT_EQ(subscriber->Records().size(), 4u);
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 4);
}

TEST_F(EventBookmarkRun, ALogWhoseNewestRecordIsAtItsBookmarkIsNotCleared)
{
  SetChannels({L"System"});
  Script(L"System", 1, 5);
  collection->UpdateOnce();
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  g_api.newest = 5;
  collection->UpdateOnce();
  EXPECT_EQ(g_api.newestQueries, std::vector<std::wstring>{L"System"});
  EXPECT_EQ(capture.Sink().Count(L"was cleared"), 0u);
  EXPECT_NE(g_api.queries.back().find(L"EventRecordID&gt;5"), std::wstring::npos);
}

// The record numbers delivered so far, in order (each scripted event's data is its number).
std::vector<int> Delivered(const CCollectingSubscriber& subscriber)
{
  std::vector<int> numbers;
  for (const auto& record : subscriber.Records())
    numbers.push_back(IndexOf(*record));
  return numbers;
}

std::vector<int> Numbers(int first, int last)
{
  std::vector<int> numbers;
  for (int n = first; n <= last; ++n)
    numbers.push_back(n);
  return numbers;
}

TEST_F(EventBookmarkRun, AStaleResultIsQueriedAgainFromTheBookmarkWithinTheUpdate)
{
  SetChannels({L"System"});
  Script(L"System", 1, 250);
  g_api.honourBounds = true;
  g_api.staleAt = {130};
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  EXPECT_NO_THROW(collection->UpdateOnce());
  EXPECT_EQ(Delivered(*subscriber), Numbers(1, 250));
  ASSERT_EQ(g_api.queries.size(), 2u);
  EXPECT_NE(g_api.queries.back().find(L"EventRecordID&gt;130"), std::wstring::npos) << g_api.queries.back();
  EXPECT_EQ(capture.Sink().Count(L"querying again after the last delivered events"), 1u);
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 250);
}

TEST_F(EventBookmarkRun, AResultStaleTooOftenFailsTheUpdateAndTheNextGoesOnFromTheBookmark)
{
  SetChannels({L"System"});
  Script(L"System", 1, 10);
  g_api.honourBounds = true;
  for (std::size_t at = 1; at <= CEventCollection::staleRequeries + 1; ++at)
    g_api.staleAt.insert(at);
  try
  {
    collection->UpdateOnce();
    ADD_FAILURE() << "the update did not fail";
  }
  catch (const CWin32Exception& error)
  {
    EXPECT_EQ(error.error(), ERROR_EVT_QUERY_RESULT_STALE);
  }
  EXPECT_EQ(g_api.queries.size(), CEventCollection::staleRequeries + 1);
  // What was delivered stays delivered; the next update starts after it.
  EXPECT_EQ(Delivered(*subscriber), Numbers(1, 4));
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 4);
  collection->UpdateOnce();
  EXPECT_EQ(Delivered(*subscriber), Numbers(1, 10));
}

TEST_F(EventBookmarkRun, BookmarksHandedToANewCollectionResumeAfterTheLastEvent)
{
  SetChannels({L"System"});
  Script(L"System", 1, 7);
  collection->UpdateOnce();
  const std::vector<SBookmark> saved = collection->SaveBookmarks();
  ASSERT_EQ(saved.size(), 1u);
  EXPECT_EQ(saved[0].Path, L"System");
  EXPECT_EQ(saved[0].RecordId, 7);

  auto next = parts.Make(L"server01", ScriptedTable());
  auto filters = Filters({L"System"});
  next->SetFilter(filters);
  next->RestoreBookmarks(saved);
  next->UpdateOnce();
  EXPECT_NE(g_api.queries.back().find(L"EventRecordID&gt;7"), std::wstring::npos) << g_api.queries.back();
}

TEST_F(EventBookmarkRun, RestoreBookmarksRejectsAnEmptyPathOrANegativeNumber)
{
  EXPECT_THROW(collection->RestoreBookmarks({SBookmark{L"", 1}}), CHResultException);
  EXPECT_THROW(collection->RestoreBookmarks({SBookmark{L"System", -1}}), CHResultException);
  EXPECT_TRUE(collection->SaveBookmarks().empty());
}
} // namespace
