// The run of an event collection over a scripted Event Log API: batches, handles, bookmarks,
// per-event failures, cancellation, session and query failures.
#include "EventTestSupport.h"
#include "ScriptedApi.h"

#include "KeldaKernel/Exceptions.h"

#include <gtest/gtest.h>

#include <climits>
#include <pwd.h>
#include <unistd.h>

namespace
{
using namespace events_test;

constexpr DWORD logonFailure = 1326;

class EventCollectionRun : public CCollectionTest
{
protected:
  void SetUp() override
  {
    g_api = SScriptedApi{};
    Start(L"server01", ScriptedTable());
  }

  void Script(const std::wstring& channel, std::initializer_list<long long> recordIds)
  {
    for (long long id : recordIds)
      g_api.events.push_back(EventXml(channel, id));
  }

  void ScriptMany(const std::wstring& channel, int count)
  {
    for (int i = 1; i <= count; ++i)
      g_api.events.push_back(EventXml(channel, i));
  }

  std::vector<long long> DeliveredIds() const
  {
    std::vector<long long> ids;
    for (const auto& record : subscriber->Records())
      ids.push_back(std::stoll(List(*record, L"Data").at(0)));
    return ids;
  }
};

TEST_F(EventCollectionRun, AnEmptyFilterListMakesEveryUpdateANoOp)
{
  ScriptMany(L"System", 3);
  collection->UpdateOnce();
  collection->UpdateOnce();
  EXPECT_EQ(g_api.sessionsOpened, 0);
  EXPECT_TRUE(g_api.queries.empty());
  EXPECT_TRUE(subscriber->Records().empty());
}

TEST_F(EventCollectionRun, SetFilterRejectsBadListsAndKeepsTheOldOne)
{
  SetChannels({L"System"});
  std::vector<SFilter> empty;
  try
  {
    collection->SetFilter(empty);
    FAIL() << "an empty list was accepted";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(error.hresult(), E_INVALIDARG);
    EXPECT_EQ(get_hresult(error), static_cast<HRESULT>(0x80070057));
    EXPECT_NE(std::string::npos, get_throw_function(error).find("SetFilter"));
    EXPECT_NE(std::string::npos, get_throw_file(error).find("EventCollection.cpp"));
    EXPECT_GT(get_throw_line(error), 0);
  }
  auto noPath = Filters({L"Application", L""});
  EXPECT_THROW(collection->SetFilter(noPath), CHResultException);
  ASSERT_EQ(collection->GetFilter().size(), 1u);
  EXPECT_EQ(collection->GetFilter()[0].Path, L"System");
}

TEST_F(EventCollectionRun, QueriesWithTheDocumentedFlagsBatchAndTimeout)
{
  SetChannels({L"System"});
  Script(L"System", {1});
  collection->UpdateOnce();
  ASSERT_EQ(g_api.queries.size(), 1u);
  EXPECT_EQ(g_api.queries[0], L"<QueryList><Query Id=\"0\"><Select Path=\"System\">*</Select></Query></QueryList>");
  EXPECT_EQ(g_api.queryFlags[0], 0x1101u);
  EXPECT_EQ(g_api.nextBatchSizes.front(), 100u);
  EXPECT_EQ(g_api.nextTimeouts.front(), 0xFFFFFFFFu);
}

TEST_F(EventCollectionRun, ABatchOfExactlyOneHundredIsFollowedByAnotherNext)
{
  SetChannels({L"System"});
  ScriptMany(L"System", 100);
  collection->UpdateOnce();
  EXPECT_EQ(g_api.nextCalls, 2);
  EXPECT_EQ(g_api.nextReturned, std::vector<DWORD>{100});
  EXPECT_EQ(subscriber->Records().size(), 100u);
}

TEST_F(EventCollectionRun, TheRunEndsOnlyOnNoMoreItems)
{
  SetChannels({L"System"});
  ScriptMany(L"System", 250);
  collection->UpdateOnce();
  EXPECT_EQ(g_api.nextReturned, (std::vector<DWORD>{100, 100, 50}));
  EXPECT_EQ(g_api.nextCalls, 4);
  EXPECT_EQ(subscriber->Records().size(), 250u);
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 250);
}

TEST_F(EventCollectionRun, EveryRecordIsDeliveredAloneAndAtOnce)
{
  SetChannels({L"System"});
  ScriptMany(L"System", 5);
  std::vector<std::size_t> sizes;
  std::vector<std::size_t> closedBefore;
  subscriber->onRecord = [&](ICollectionTypes::Records records) {
    sizes.push_back(records.size());
    closedBefore.push_back(g_api.closed.size());
  };
  collection->UpdateOnce();
  EXPECT_EQ(sizes, (std::vector<std::size_t>{1, 1, 1, 1, 1}));
  EXPECT_EQ(subscriber->Calls(), 5u);
  // Delivered while the batch is still open: no handle was closed yet.
  EXPECT_EQ(closedBefore, (std::vector<std::size_t>{0, 0, 0, 0, 0}));
}

TEST_F(EventCollectionRun, EveryEventHandleAndTheQueryAreClosed)
{
  SetChannels({L"System"});
  ScriptMany(L"System", 150);
  collection->UpdateOnce();
  for (std::size_t i = 0; i < 150; ++i)
    EXPECT_EQ(g_api.closed.count(scriptedFirstEvent + i), 1u) << "event " << i;
  EXPECT_EQ(g_api.closed.count(scriptedQuery), 1u);
  // The session stays open for the next update.
  EXPECT_EQ(g_api.closed.count(scriptedSession), 0u);
}

TEST_F(EventCollectionRun, EventsOutOfRecordOrderNeverMoveABookmarkBack)
{
  SetChannels({L"System", L"Application"});
  Script(L"System", {5, 3, 7, 6});
  Script(L"Application", {40, 2});
  collection->UpdateOnce();
  EXPECT_EQ(DeliveredIds(), (std::vector<long long>{5, 3, 7, 6, 40, 2}));
  const auto bookmarks = collection->GetBookmarks();
  EXPECT_EQ(bookmarks.at(L"System"), 7);
  EXPECT_EQ(bookmarks.at(L"Application"), 40);
}

TEST_F(EventCollectionRun, TheNextQueryAsksOnlyForNewerRecords)
{
  std::vector<SFilter> filters{SFilter{L"System", L"", 3600000, {}}};
  collection->SetFilter(filters);
  Script(L"System", {11, 12});
  collection->UpdateOnce();
  collection->UpdateOnce();
  ASSERT_EQ(g_api.queries.size(), 2u);
  EXPECT_NE(g_api.queries[0].find(L"TimeCreated[timediff(@SystemTime)&lt;=3600000]"), std::wstring::npos);
  // After the first read of the channel its look-back window is no longer used.
  EXPECT_EQ(g_api.queries[1].find(L"timediff"), std::wstring::npos);
  EXPECT_NE(g_api.queries[1].find(L"EventRecordID&gt;12"), std::wstring::npos);
}

TEST_F(EventCollectionRun, AnEventThatCannotBeRenderedIsSkippedSilently)
{
  SetChannels({L"System"});
  Script(L"System", {1, 2, 3});
  g_api.renderFailures = {1};
  collection->UpdateOnce();
  EXPECT_EQ(DeliveredIds(), (std::vector<long long>{1, 3}));
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 3);
}

// The XML is rendered into the buffer earlier events left: an event that fits takes one call,
// a larger one the size call and a second; every event reads as itself.
TEST_F(EventCollectionRun, EventsThatFitTheRenderBufferAreRenderedInOneCall)
{
  SetChannels({L"System"});
  Script(L"System", {1, 2, 3});
  // A long data value makes the third event far larger than the first two.
  const std::wstring marker = L"<Data>3</Data>";
  g_api.events[2].replace(g_api.events[2].find(marker), marker.size(), L"<Data>3</Data><Data>" + std::wstring(5000, L'x') + L"</Data>");
  g_api.events.push_back(EventXml(L"System", 4));
  collection->UpdateOnce();
  EXPECT_EQ(DeliveredIds(), (std::vector<long long>{1, 2, 3, 4}));
  ASSERT_EQ(subscriber->Records().size(), 4u);
  EXPECT_EQ(List(*subscriber->Records()[2], L"Data").at(1), std::wstring(5000, L'x'));
  // 1: sized and rendered (the buffer starts empty); 2: fits; 3: too large, sized and rendered; 4: fits.
  EXPECT_EQ(g_api.renderCalls, 6);
}

TEST_F(EventCollectionRun, MalformedXmlIsSkippedAndMovesNoBookmark)
{
  SetChannels({L"System"});
  Script(L"System", {1});
  g_api.events.push_back(L"<Event><System><Channel>Other</Channel><EventRecordID>99</EventRecordID>");
  collection->UpdateOnce();
  EXPECT_EQ(DeliveredIds(), (std::vector<long long>{1}));
  EXPECT_EQ(collection->GetBookmarks().count(L"Other"), 0u);
}

TEST_F(EventCollectionRun, ASubscriberFailureIsItsOwnAndTheEventStillCounts)
{
  SetChannels({L"System"});
  Script(L"System", {1, 2, 3});
  int calls = 0;
  subscriber->onRecord = [&](ICollectionTypes::Records) {
    if (++calls == 2)
      throw std::runtime_error("subscriber broke");
  };
  EXPECT_NO_THROW(collection->UpdateOnce());
  // The failure belongs to that subscriber: the run goes on and the event is not read again.
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 3);
}

TEST_F(EventCollectionRun, OperationCancelledEndsTheRun)
{
  SetChannels({L"System"});
  Script(L"System", {1, 2, 3});
  int calls = 0;
  subscriber->onRecord = [&](ICollectionTypes::Records) {
    if (++calls == 2)
      KELDA_THROW(CHResultException(HRESULT_FROM_WIN32(ERROR_CANCELLED)));
  };
  try
  {
    collection->UpdateOnce();
    FAIL() << "the run went on";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(static_cast<std::uint32_t>(error.hresult()), 0x800704C7u);
  }
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 1);
  // Handles are closed on the way out.
  EXPECT_EQ(g_api.closed.count(scriptedFirstEvent + 2), 1u);
  EXPECT_EQ(g_api.closed.count(scriptedQuery), 1u);
}

TEST_F(EventCollectionRun, AnInterruptionEndsTheRun)
{
  SetChannels({L"System"});
  Script(L"System", {1, 2, 3});
  subscriber->onRecord = [&](ICollectionTypes::Records) { KELDA_THROW(CInterruptedException()); };
  EXPECT_THROW(collection->UpdateOnce(), CInterruptedException);
  EXPECT_TRUE(collection->GetBookmarks().empty());
}

TEST_F(EventCollectionRun, NextFailingOtherwiseRaisesItsCode)
{
  SetChannels({L"System"});
  ScriptMany(L"System", 150);
  g_api.nextFailsAfter = 100;
  g_api.nextError = ERROR_INVALID_HANDLE;
  try
  {
    collection->UpdateOnce();
    FAIL() << "the failure was ignored";
  }
  catch (const CWin32Exception& error)
  {
    EXPECT_EQ(error.error(), ERROR_INVALID_HANDLE);
  }
  // What came before the failure stays delivered and bookmarked.
  EXPECT_EQ(subscriber->Records().size(), 100u);
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), 100);
}

TEST_F(EventCollectionRun, AFailedQueryRaisesTheHResultOfTheLastError)
{
  SetChannels({L"System"});
  g_api.queryFails = true;
  g_api.queryError = ERROR_EVT_INVALID_QUERY;
  try
  {
    collection->UpdateOnce();
    FAIL() << "the failure was ignored";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(static_cast<std::uint32_t>(error.hresult()), 0x80073A99u);
    EXPECT_EQ(dynamic_cast<const CWin32Exception*>(&error), nullptr);
  }
}

TEST_F(EventCollectionRun, TheSessionIsOpenedOnceWithTheAccountsCredentials)
{
  SetChannels({L"System"});
  collection->UpdateOnce();
  collection->UpdateOnce();
  collection->UpdateOnce();
  EXPECT_EQ(g_api.sessionsOpened, 1);
  EXPECT_TRUE(g_api.lastHadCredentials);
  EXPECT_EQ(g_api.lastUser, L"bob");
}

TEST_F(EventCollectionRun, TheProcessAccountOpensWithoutCredentials)
{
  const passwd* entry = getpwuid(geteuid());
  ASSERT_NE(entry, nullptr);
  parts.user = std::make_shared<CUser>(L".", kelda::FromUtf8(entry->pw_name));
  collection = parts.Make(L"server01", ScriptedTable());
  SetChannels({L"System"});
  collection->UpdateOnce();
  EXPECT_EQ(g_api.sessionsOpened, 1);
  EXPECT_FALSE(g_api.lastHadCredentials);
}

TEST_F(EventCollectionRun, ABadCredentialFailsTheUpdateAndTheNextOneRetries)
{
  SetChannels({L"System"});
  Script(L"System", {1});
  g_api.openFails = true;
  g_api.openError = logonFailure;
  try
  {
    collection->UpdateOnce();
    FAIL() << "the failure was ignored";
  }
  catch (const CWin32Exception& error)
  {
    EXPECT_EQ(error.error(), logonFailure);
    // The failure is the update's own, as a caller reading the log would look for it.
    EXPECT_NE(std::string::npos, get_throw_function(error).find("updateImpl"));
    EXPECT_NE(std::string::npos, get_throw_file(error).find("EventCollection.cpp"));
  }
  EXPECT_TRUE(g_api.queries.empty());
  g_api.openFails = false;
  collection->UpdateOnce();
  EXPECT_EQ(g_api.sessionsOpened, 1);
  EXPECT_EQ(subscriber->Records().size(), 1u);
}

TEST_F(EventCollectionRun, NoUserIsAFailure)
{
  parts.user = nullptr;
  collection = parts.Make(L"server01", ScriptedTable());
  SetChannels({L"System"});
  EXPECT_THROW(collection->UpdateOnce(), CKeldaException);
  EXPECT_EQ(g_api.sessionsOpened, 0);
}

TEST_F(EventCollectionRun, RecordNumbersAreReadAsThirtyTwoBitIntegers)
{
  SetChannels({L"System"});
  Script(L"System", {4294967297LL});
  collection->UpdateOnce();
  EXPECT_EQ(collection->GetBookmarks().at(L"System"), INT_MAX);
}

TEST_F(EventCollectionRun, TheRecordCarriesTheFieldsOfItsXml)
{
  SetChannels({L"System"});
  g_api.events.push_back(
    L"<Event><System><Provider Name='Service Control Manager'/><EventID Qualifiers='16384'>7036</EventID>"
    L"<Level>2</Level><TimeCreated SystemTime='2016-07-08T18:12:51.6816400Z'/><EventRecordID>2</EventRecordID>"
    L"<Channel>System</Channel><Security UserID='S-1-5-18'/></System><EventData><Data>a</Data><Data>b</Data>"
    L"</EventData></Event>");
  collection->UpdateOnce();
  ASSERT_EQ(subscriber->Records().size(), 1u);
  IRecord& record = *subscriber->Records()[0];
  EXPECT_EQ(Text(record, L"SourceName"), L"Service Control Manager");
  EXPECT_EQ(Text(record, L"Description"), L"");
  EXPECT_EQ(Text(record, L"InitiatedBy"), L"NT AUTHORITY\\SYSTEM");
  EXPECT_EQ(Number(record, L"EventType"), 1);
  EXPECT_EQ(Number(record, L"EventCode"), 7036);
  EXPECT_EQ(Number(record, L"InternalId"), 1073748860);
  EXPECT_EQ(List(record, L"Data"), (std::vector<std::wstring>{L"a", L"b"}));
  const auto& created = std::get<COleDateTimeEx>(ValueOf(record, L"CreatedTime"));
  SYSTEMTIME st{};
  ASSERT_TRUE(created.GetAsSystemTime(st));
  EXPECT_EQ(st.wMilliseconds, 682);
}
} // namespace
